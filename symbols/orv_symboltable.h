// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The heart of address lookup: ranges that overlap in any way, and which of them wins where.
///
/// Every start of a range is a key, and so is every boundary that a loader adds. What is alive at a
/// key is the records that start there and those that started earlier and end later, the greatest
/// end first. Among equal ends a record stands first at the key that it makes, as one at which all others arrive later,
/// and elsewhere in the order of arrival. Between two keys the same records are
/// alive, but for those that end there; labels stand from their key up to the next.
///
/// m_guard lets readers in together and a load alone, so that a query may run while another thread
/// loads further kinds. No client's code and no load runs under it. Iterators find their place again
/// after such a load.
#pragma once

#include "core/orv_pool.h"
#include "orv/orv_scope.h"
#include "symbols/orv_key_group.h"
#include "symbols/orv_key_index.h"
#include "symbols/orv_scope.h"
#include "symbols/orv_scope_maker.h"

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

class SymbolTable final : public SymMgrObject<ISymbolTable> {
public:
    using Records = std::vector<RangeRecord*>;

    SymbolTable(Scope* scope, ILock* countLock);
    ~SymbolTable() override;

    bool addScope(Scope* scope) override;
    bool addRange(unsigned long long start, unsigned long long end, Scope* scope) override;
    void symbolRangeByAddress(SymMgrObjectPtr<ISymbolRange>& out, unsigned long long address, symbol_kind_t mask,
                              ISymbolChooser* resolver) override;
    void symbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, unsigned long long start, unsigned long long end,
                      symbol_kind_t mask) override;
    void nonOverlappedSymbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, unsigned long long start,
                                   unsigned long long end, symbol_kind_t mask, ISymbolChooser* resolver) override;
    Scope* scope() override { return m_scope; }

    /// Adds what a format's own symbol table holds, as addRange would with a scope for each, one by
    /// one in the given order. The names must outlive the table.
    void addRawSymbols(IFileFormatLoader* loader, RawSymbolBatch batch);

    /// A symbol of debug information whose scope is made when somebody needs it.
    struct Deferred {
        char const* name; ///< Must outlive the table.
        unsigned long long start;
        unsigned long long end;
        symbol_visibility_t visibility;
        symbol_kind_t kind;
        std::uint64_t token; ///< Given back to the maker.
    };
    /// Adds a symbol as addRange would with its scope.
    void addDeferred(IScopeMaker& maker, Deferred const& symbol);

    // For the iterators. Each call takes the guard by itself.

    /// Finds a key; false if there is none. floorKey: the last at or below an address, or failing
    /// that the lowest. keyAfter, keyFrom: the first above an address, the first at or above it.
    bool floorKey(unsigned long long address, unsigned long long& key) const;
    bool keyAfter(unsigned long long address, unsigned long long& key) const;
    bool keyFrom(unsigned long long address, unsigned long long& key) const;
    /// The records that start at a key, in list order.
    Records recordsFrom(unsigned long long key) const;
    /// The records alive at a key, in list order.
    Records recordsAlive(unsigned long long key) const;
    /// Of those alive at a key, the candidates for an address in its stretch.
    Records candidates(unsigned long long address, symbol_kind_t mask, unsigned long long key) const;
    /// The scopes of the ranges that hold an address, the one that ends last first: those that
    /// symbolRanges gives for it.
    void scopesAt(unsigned long long address, symbol_kind_t mask, std::vector<Scope*>& out) const;
    /// The one that wins at an address in a key's stretch; null if there is none.
    RangeRecord const* chooseRecord(unsigned long long address, symbol_kind_t mask, unsigned long long key,
                                    ISymbolChooser* resolver) const;
    /// The scope of a record, made if nobody has needed it before.
    Scope* scopeOf(RangeRecord const& record) const;
    /// The symbol's kind; false for a scope without a symbol.
    bool kindOf(RangeRecord const& record, symbol_kind_t& kind) const;
    /// Where the symbol ranks among those that overlap it; false for a scope without a symbol.
    struct Rank {
        bool hasUnit;
        int priority;
        symbol_visibility_t visibility;
        bool isInline;
    };
    bool rankOf(RangeRecord const& record, Rank& out) const;

private:
    using Position = KeyIndex::Position;
    using Guard = std::shared_mutex;

    RangeRecord* insertRange(unsigned long long start, unsigned long long end, Scope* scope, std::uint32_t order);
    /// Puts a new range at a key where others start already.
    RangeRecord* insertBeside(Position at, unsigned long long end, Scope* scope, std::uint32_t order);
    RangeRecord* makeRecord(Position at, unsigned long long end, Scope* scope, std::uint32_t order);
    class Names;
    class RawScopeMaker;
    IScopeMaker& rawMakerOf(IFileFormatLoader* loader);
    std::uint8_t numberOf(IScopeMaker& maker);
    bool isRaw(RangeRecord const& record) const;
    /// order: the newcomer's arrival, which is that of a rival whose end it changes.
    bool takeIntoRival(Position at, MergeSide const& newcomer, std::uint32_t order);
    /// The first thing at a key, in list order, about which decide says anything but merge_Different.
    template <typename Decide>
    RangeRecord* findRival(Position at, char const* name, unsigned long long end, Decide decide, unsigned int& flags);
    MergeNext nextOf(Position at) const;
    KeyGroup* groupAt(unsigned long long address) const;
    unsigned int decide(RangeRecord const& rival, MergeSide const& newcomer, MergeNext const& next) const;
    template <typename Merge>
    void changeEnd(RangeRecord* rival, unsigned int flags, unsigned long long end, std::uint32_t order, Merge merge);
    void absorbSide(RangeRecord* rival, unsigned int flags, MergeSide const& newcomer, std::uint32_t order);
    RangeRecord const* lastFrom(Position at) const;
    char const* nameOf(RangeRecord const& record) const;
    void insertRaw(RangeRecord& symbol, Names& names);
    void insertRawGroup(RawSymbolBatch& batch, std::vector<std::uint32_t> const& group, Names& names);
    void insertRawByAddress(RawSymbolBatch& batch, Names& names);
    bool holdsOnlyRaw(unsigned long long address) const;
    void link(Position at, RangeRecord* record);
    void unlink(Position at, RangeRecord* record);
    void absorb(RangeRecord* rival, unsigned int flags, Scope& newcomer, unsigned long long end, std::uint32_t order);
    void removeOtherRanges(Scope& scope);
    void eraseDeserted(unsigned long long from, unsigned long long to);
    void keep(Scope* scope);
    void drop(Scope* scope);
    bool isDeserted(Position at) const;

    void collectAlive(Position at, Records& out) const;
    void sortAsList(Position at, Records& records) const;
    bool isInFront(RangeRecord const& record, Position at) const;
    RangeRecord const* chooseAt(Position at, unsigned long long address, symbol_kind_t mask) const;
    RangeRecord const* chooseByClient(Records const& found, ISymbolChooser& resolver) const;

    Scope* m_scope; ///< The owner of the table. Not counted, may be null.
    mutable Guard m_guard;
    KeyIndex m_keys;
    Pool<RangeRecord> m_pool;
    std::vector<RawSymbolBatch> m_batches;                                      ///< Where raw records stand.
    std::unordered_map<unsigned long long, std::unique_ptr<KeyGroup>> m_groups; ///< At keys where much starts.
    std::uint32_t m_arrivals = 0;
    /// By the number that records have. Not owned. In place, as readers look here while a load adds one: a module has
    /// its format loader, and two of its debug information.
    std::array<IScopeMaker*, 8> m_makers{};
    std::vector<std::unique_ptr<RawScopeMaker>> m_rawMakers; ///< One for each loader of raw symbols.
    std::size_t m_linked = 0;                                ///< How many records were ever linked.
    bool m_holdsDeciders = false;    ///< Scopes that decide by more than name and range have come in.
    mutable std::mutex m_scopesLock; ///< Guards the making of scopes, inside m_guard.
    mutable std::vector<SymMgrObjectPtr<Scope>> m_scopes; ///< Once for each range or scope taken.
};

} // namespace ORV_3_30
