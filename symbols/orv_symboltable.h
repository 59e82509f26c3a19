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

#include "orv/orv_scope.h"
#include "symbols/orv_function_pieces.h"
#include "symbols/orv_key_group.h"
#include "symbols/orv_key_index.h"
#include "symbols/orv_scope.h"
#include "symbols/orv_scope_maker.h"

#include <array>
#include <cstdint>
#include <deque>
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
    /// one in the given order, but for those whose name is empty. The names must outlive the table.
    void addRawSymbols(IFileFormatLoader* loader, RawSymbolBatch const& batch);

    /// Adds a symbol of one range as addRange would with its scope, which the maker makes when somebody needs it. The
    /// name must outlive the table; the token is given back to the maker.
    void addSymbol(IScopeMaker& maker, MergeSide const& symbol, std::uint64_t token);

    /// The disjoint walk over all functions; as it is now.
    std::shared_ptr<FunctionPieces const> functionPieces();
    /// Grows with all that comes into the table.
    std::uint32_t arrivals() const;

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

        /// Above 0 for the better one, below for the worse, 0 where other things decide.
        int compare(Rank const& other) const;
    };
    bool rankOf(RangeRecord const& record, Rank& out) const;

private:
    using Position = KeyIndex::Position;
    using Guard = std::shared_mutex;

    /// A range on its way into the table.
    struct Newcomer {
        MergeSide side; ///< Of its symbol, which may have other ranges too.
        unsigned long long start;
        unsigned long long end;
        std::uint32_t order;
        Scope* scope = nullptr;  ///< Where it came with one.
        std::uint64_t token = 0; ///< Of who makes it, where not.
    };

    // What comes in, and what becomes of it. A record that was there takes in what is the same.
    RangeRecord* insert(Newcomer const& newcomer, IScopeMaker& maker);
    RangeRecord* insertScope(unsigned long long start, unsigned long long end, Scope& scope);
    void handOverThunks(Scope& scope, Scope* target, bool& hasStayed);
    RangeRecord* findRival(Position at, MergeSide const& newcomer, unsigned int& flags);
    MergeNext nextOf(Position at) const;
    RangeRecord const* lastFrom(Position at) const;
    void absorb(RangeRecord* rival, unsigned int flags, Newcomer const& newcomer);
    void absorbSymbol(RangeRecord& rival, unsigned int flags, Newcomer const& newcomer);
    void moveEnd(RangeRecord* rival, RangeRecord* previous, unsigned long long oldEnd, unsigned int flags,
                 Newcomer const& newcomer);
    void removeOtherRanges(Scope& scope, RangeList const& ranges);
    /// Of a scope without a symbol the name is null.
    MergeSide sideOf(RangeRecord const& record) const;
    bool changesAnything(RangeRecord const& rival, unsigned int flags, Newcomer const& newcomer) const;

    void link(Position at, RangeRecord* record);
    void unlink(Position at, RangeRecord* previous, RangeRecord* record);
    RangeRecord* previousOf(Position at, RangeRecord const* record) const;
    KeyGroup* groupAt(unsigned long long address) const;
    KeyGroup& makeGroup(Position at);
    bool enterGroup(RangeRecord* record);

    std::uint8_t numberOf(IScopeMaker& maker);
    RawScopeMaker& rawMakerOf(IFileFormatLoader* loader);
    void keep(Scope* scope);
    void drop(Scope* scope);

    // Under the guard.
    Records collectAlive(unsigned long long address) const;
    Records collectCandidates(unsigned long long address, symbol_kind_t mask, unsigned long long key) const;
    void sortAsList(Position at, Records& records) const;
    bool isInFront(RangeRecord const& record, Position at) const;
    RangeRecord const* chooseByClient(Records const& found, ISymbolChooser& resolver, unsigned long long key) const;

    Scope* m_scope; ///< The owner of the table. Not counted, may be null.
    mutable Guard m_guard;
    KeyIndex m_keys;
    std::deque<RangeRecord> m_records;                                          ///< They stay where they are.
    std::unordered_map<unsigned long long, std::unique_ptr<KeyGroup>> m_groups; ///< At keys where much starts.
    std::uint32_t m_arrivals = 0;
    std::mutex m_piecesLock; ///< Guards the making of pieces, outside m_guard.
    std::shared_ptr<FunctionPieces const> m_pieces;
    /// By the number that records have. Not owned. In place, as readers look here while a load adds one: a module has
    /// its format loader, and two of its debug information.
    std::array<IScopeMaker*, 8> m_makers{};
    std::vector<std::unique_ptr<RawScopeMaker>> m_rawMakers; ///< One for each loader of raw symbols.
    mutable std::mutex m_scopesLock;                         ///< Guards the making of scopes, inside m_guard.
    mutable std::vector<SymMgrObjectPtr<Scope>> m_scopes;    ///< Once for each range or scope taken.
};

} // namespace ORV_3_30
