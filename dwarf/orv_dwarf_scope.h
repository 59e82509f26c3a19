// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Symbols and scopes of DWARF entries.
#pragma once

#include "core/orv_once.h"
#include "dwarf/orv_dwarf_details.h"
#include "dwarf/orv_dwarf_inline_tree.h"
#include "symbols/orv_scope.h"

#include <atomic>

namespace ORV_3_30 {

class SourceLocation;

/// Where a symbol was declared, or an inlined body called, as its entry has it.
struct DeclLocation {
    std::uint64_t file; ///< Number in the unit's line table.
    std::uint64_t line;
    std::uint64_t column;
    std::uint64_t extra;        ///< Discriminator.
    DWARFCompilationUnit* unit; ///< Whose table it is.

    /// Of the declaration of the entry at an offset; for an inlined body, of what is inlined. The attributes
    /// are looked for through the origin. False where file or line is not known.
    static bool readDeclaration(DWARFCompilationUnit& unit, std::uint64_t dieOffset, DeclLocation& out);
    /// Of the call of an inlined body.
    static DeclLocation ofCall(DWARFCompilationUnit& unit, InlineTree::Body const& body) {
        return {body.callFile, body.callLine, body.callColumn, body.discriminator, &unit};
    }
    bool isKnown() const { return file != k_noFile && line != 0; }
    /// The id of the file; -1 if the unit's table has none of that number. Runs the unit's line program.
    int sourceFileId() const;
    /// A new location for the file of that id.
    SourceLocation* locationIn(int fileId, unsigned long long unitKey) const;
};

/// A symbol that knows its unit and where it was declared. What is looked up on demand is kept in
/// atomics: threads share symbols, and find the same.
class DWARFSymbol final : public Symbol {
public:
    /// shownUnit: the unit that clients are told.
    DWARFSymbol(DWARFCompilationUnit& unit, std::uint64_t dieOffset, MergeSide const& symbol, Scope* scope,
                DWARFCompilationUnit& shownUnit);

    /// status_Ok; status_False without a declaration whose file is known.
    status_t sourceLine(SymMgrObjectPtr<ISourceLine>& out) override;
    status_t compUnitDetails(ICompUnitDetails*& out) override;
    void sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out) override;
    void sourceLineByAddress(SymMgrObjectPtr<ISourceLine>& out, IAddress* address) override;
    void sourceLinesIn(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, unsigned long long start,
                       unsigned long long end) override;
    RowAt const* latestLineAt(RowsAtAddress const& rows) override;

    std::uint64_t dieOffset() const { return m_dieOffset; }
    /// Files whose lines are the symbol's own; -1 where unknown.
    int declaredFileId();
    int fileIdAtAddress();

private:
    static constexpr int k_notLookedUp = -2;
    bool linesOfFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, int fileId,
                     unsigned long long start, unsigned long long end);

    // Of the bank: not used once the scope is gone.
    DWARFCompilationUnit& m_unit;
    DWARFCompilationUnit& m_shownUnit;
    std::uint64_t m_dieOffset;
    Once<SymMgrObjectPtr<ISourceLocation>> m_declaration; ///< Null in it without a known file.
    std::atomic<int> m_declaredFileId{k_notLookedUp};
    std::atomic<int> m_fileIdAtAddress{k_notLookedUp};
};

/// The scope of an entry that has a symbol. It knows where the entry stands, and reads what lies in it when
/// that is asked for: for a variable the members of its type, for anything else the entry's children.
class DWARFScope : public SymbolScope {
public:
    DWARFScope(DWARFCompilationUnit& unit, std::uint64_t dieOffset, Scope* parent, DWARFCompilationUnit& shownUnit);
    /// With its symbol, for the entry that a record stands for.
    static DWARFScope* make(DWARFDebugInfoLoader& loader, RangeRecord const& record, Scope* parent);
    /// Of an inlined body in this one, with its ranges; the record's token is the body's node.
    DWARFScope* makeBody(RangeRecord const& record);

    status_t loadKinds(unsigned int mask) override;
    IScopeMaker& maker() override;
    void takeIn(MergeSide const& other, unsigned int flags, Scope* whole) override;
    bool innermostInlinedAt(unsigned long long address, InlinedCall& out) override;
    bool inlinedAround(InlinedCall const& inner, unsigned long long address, InlinedCall& out) override;
    bool callOf(InlinedCall const& call, CallPlace& out) override;

    DWARFCompilationUnit& unit() const { return m_unit; }
    /// The one that clients are told.
    DWARFCompilationUnit& shownUnit() const { return m_shownUnit; }
    std::uint64_t dieOffset() const { return m_dieOffset; }

private:
    status_t loadMembers();
    InlineTree const& tree();
    static bool describe(InlineTree::Body const* body, unsigned long long address, InlinedCall& out);

    DWARFCompilationUnit& m_unit;
    DWARFCompilationUnit& m_shownUnit;
    std::uint64_t m_dieOffset;                ///< In .debug_info.
    InlineTree const* m_treeAround = nullptr; ///< That of the function which an inlined body lies in.
    InlineTree::Id m_level = InlineTree::k_root;
    Once<InlineTree> m_ownTree; ///< Of any other scope.
};

} // namespace ORV_3_30
