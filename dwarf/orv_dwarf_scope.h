// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Symbols and scopes of DWARF entries.
#pragma once

#include "dwarf/orv_dwarf_die.h"
#include "dwarf/orv_dwarf_unit.h"
#include "symbols/orv_scope.h"

#include <atomic>
#include <memory>

namespace ORV_3_30 {

class InlineIndex;
class SourceLocation;

/// Where a symbol was declared, or an inlined body called, as its entry has it.
struct DeclLocation {
    std::uint64_t file; ///< Number in the unit's line table.
    std::uint64_t line;
    std::uint64_t column;
    std::uint64_t extra; ///< Discriminator.
    DWARFCompilationUnit* unit;

    /// Of the declaration of the entry at an offset; for an inlined body, of what is inlined. The attributes
    /// are looked for through the origin. False where file or line is not known.
    static bool readDeclaration(DWARFCompilationUnit& unit, std::uint64_t dieOffset, DeclLocation& out);
    /// Of the call of an inlined body.
    static bool readCall(DWARFCompilationUnit& unit, std::uint64_t dieOffset, DeclLocation& out);
    /// The id of the file; -1 if the unit's table has none of that number. Runs the unit's line program.
    int sourceFileId() const;
    /// A new location for the file of that id.
    SourceLocation* locationIn(int fileId, unsigned long long unitKey) const;
};

/// A symbol that knows its unit and where it was declared. What is looked up on demand is kept in
/// atomics: threads share symbols, and find the same.
class DWARFSymbol final : public Symbol {
public:
    DWARFSymbol(DWARFCompilationUnit& unit, std::uint64_t dieOffset, MergeSide const& symbol, Scope* scope);

    /// status_Ok; status_False without a declaration whose file is known.
    status_t sourceLine(SymMgrObjectPtr<ISourceLine>& out) override;
    status_t compUnitDetails(ICompUnitDetails*& out) override;
    void sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out) override;
    void sourceLineByAddress(SymMgrObjectPtr<ISourceLine>& out, IAddress* address) override;
    void sourceLinesIn(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, unsigned long long start,
                       unsigned long long end) override;
    bool latestLineAt(unsigned long long address, SrcLocator& row) override;

    /// Files whose lines are the symbol's own; -1 where unknown.
    int declaredFileId();
    int fileIdAtAddress();

private:
    static constexpr int k_notLookedUp = -2;
    bool linesOfFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, int fileId,
                     unsigned long long start, unsigned long long end);

    DWARFCompilationUnit& m_unit; ///< Of the bank: not used once the scope is gone.
    std::uint64_t m_dieOffset;
    std::atomic<int> m_declaredFileId{k_notLookedUp};
    std::atomic<int> m_fileIdAtAddress{k_notLookedUp};
};

/// The scope of an entry that has a symbol. It knows where the entry stands, and reads what lies in it when
/// that is asked for: for a variable the members of its type, for anything else the entry's children.
class DWARFScope : public SymbolScope {
public:
    DWARFScope(DWARFCompilationUnit& unit, std::uint64_t dieOffset, Scope* parent);
    ~DWARFScope() override;

    status_t ensureKinds(unsigned int mask) override;
    status_t loadKinds(unsigned int mask) override;
    status_t symbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, unsigned long long start, unsigned long long end,
                          symbol_kind_t mask) override;
    status_t symbolRangeByAddress(SymMgrObjectPtr<ISymbolRange>& out, unsigned long long address, symbol_kind_t mask,
                                  ISymbolChooser* resolver) override;
    IScopeMaker& maker() override;
    void takeIn(MergeSide const& other, unsigned int flags, Scope* whole) override;

    DWARFCompilationUnit& unit() const { return m_unit; }
    std::uint64_t dieOffset() const { return m_dieOffset; }

    /// For the scope of an inlined body: where it stands in the index of a scope around it.
    void useIndex(InlineIndex& index, std::uint32_t body);
    /// The scope of an inlined body directly in this one, as answers have it. Null where the symbol table decides: a
    /// scope that it gets is told where it stands by lendIndex.
    DWARFScope* indexedChild(std::uint64_t dieOffset);
    void lendIndex(DWARFScope& child);
    /// Behind the children of the inlined body at an offset directly inside; 0 if that is not known.
    std::uint64_t endOfBody(std::uint64_t dieOffset) const;

private:
    status_t loadMembers();
    InlineIndex* inlineIndex();
    InlineIndex* answeringIndex(symbol_kind_t mask, ISymbolChooser* resolver);

    DWARFCompilationUnit& m_unit;
    std::uint64_t m_dieOffset;                  ///< In .debug_info.
    std::atomic<InlineIndex*> m_index{nullptr}; ///< Owned by the scope that it was read for.
    std::uint32_t m_body = 0;                   ///< In the index; 0 in the scope that owns it.
    std::atomic<bool> m_hasNoIndex{false};      ///< It was tried, here or around.
    /// The kinds that were asked for first, whether or not that took a load. A further load finds what stands in
    /// inlined bodies too: from then on the table answers.
    std::atomic<unsigned int> m_firstKinds{0};
    std::atomic<bool> m_isStepped{false};
};

/// The scope of the entry at an offset inside another one: without a range, unless it was made before.
DWARFScope* childScope(DWARFCompilationUnit& unit, std::uint64_t dieOffset, MergeSide const& symbol, Scope* parent);
/// Makes the scope of the entry at an offset, with its symbol and without a range.
DWARFScope* makeDwarfScope(DWARFCompilationUnit& unit, std::uint64_t dieOffset, MergeSide const& symbol, Scope* parent);

} // namespace ORV_3_30
