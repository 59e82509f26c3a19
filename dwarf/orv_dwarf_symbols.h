// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The walk over the entries of a unit that makes symbols of them.
///
///     DieTreeWalk walk(loader, {table, filter, parent});
///     walk.walkUnit(unit, mask);
///
/// At the top of a unit it stops at functions, but for those of Fortran, which hold others. Below a
/// function it is started again, with the function's scope as the parent, when somebody asks. It does not
/// go into namespaces and classes on purpose: a definition stands at unit level, and points to its
/// declaration. The modern reading goes into all of them, since not every compiler keeps to that.
#pragma once

#include "dwarf/orv_dwarf_die.h"
#include "dwarf/orv_dwarf_inline_tree.h"
#include "dwarf/orv_dwarf_ranges.h"
#include "dwarf/orv_dwarf_unit.h"
#include "orv/orv_scope.h"
#include "symbols/orv_scope.h"

#include <vector>

namespace ORV_3_30 {

class DWARFDebugInfoLoader;
class DWARFScope;
class SymbolTable;

/// No recursion: however deep a file nests its entries, it costs memory in proportion, and no stack.
class DieTreeWalk {
public:
    struct Target {
        ISymbolTable* table;    ///< Null with a mask of 0, and below a function: the parent's, made when needed.
        AcceptedRanges* filter; ///< Null: everything is taken.
        Scope* parent;
    };

    DieTreeWalk(DWARFDebugInfoLoader& loader, Target const& target);

    /// Reads the unit's own entry and goes through its children. A mask of 0 makes no symbols.
    void walkUnit(DwarfUnit& unit, unsigned int mask);
    /// Goes through what lies in a scope, but not in the inlined bodies there.
    void walkLevel(DWARFScope& scope, InlineTree const& tree, InlineTree::Id level, unsigned int mask);

private:
    /// A symbol that is added once its entry's children were walked.
    struct Opened {
        char const* name = nullptr; ///< Null: none.
        std::uint64_t token = 0;    ///< Offset of the entry; of an inlined body the node.
        unsigned long long start = 0;
        unsigned long long end = 0;
        symbol_kind_t kind{};
        symbol_visibility_t visibility{};
        bool isInline = false;
        AddressPairs ranges; ///< Where it has several.
    };
    enum class Children { Skip, Enter };

    void run();
    /// Reads one entry. False at the end of its list.
    bool step();
    bool enterUnit(AbbrevEntry const& entry, std::uint64_t offset);
    Children act(std::uint32_t tag, std::uint64_t offset);
    Children openFunction(symbol_kind_t kind, std::uint64_t offset);
    Children openLabel(std::uint64_t offset);
    Children openVariable(std::uint64_t offset);
    void openBody(InlineTree::Body const& body);
    /// Gives what was opened the ranges of a list.
    void takeRanges(AttrValue const& list);
    void leaveOutDropped();
    Children actOn(InlineTree const& tree, InlineTree::Node const& node);
    void mergeOptionsOf(InlineTree const& tree);
    bool readAt(std::uint64_t dieOffset);
    Children mergeOptions();
    char const* shortened(char const* name);
    void open(char const* name, symbol_kind_t kind, std::uint64_t offset, unsigned long long start,
              unsigned long long end);
    void add(Opened const& opened);
    void addAsScope(Opened const& opened);
    bool entersFunctions() const;
    bool makesLabels() const;
    void nameFunction();
    char const* nameOf(unsigned long long start, unsigned long long end);
    bool accepts(unsigned long long start, unsigned long long end) const;
    static bool makesNothing(AbbrevEntry const& entry);
    bool needsAttributes(std::uint32_t tag) const;
    void enterChildren(std::uint32_t tag);

    DWARFDebugInfoLoader& m_loader;
    Target m_target;
    SymbolTable* m_ownTable; ///< Null for a table that somebody else has implemented.
    DwarfUnit* m_unit = nullptr;
    unsigned int m_mask = 0;
    bool m_isModern;
    std::size_t m_functionLevel = 0; ///< How many lists were open in the outermost function; 0 outside.
    DwarfWalker m_walker;
    DieChain m_chain;
    Opened m_opened;               ///< By the entry that is being read.
    std::vector<bool> m_levels;    ///< Lists that are open: whether their entry has made the last of what waits.
    std::vector<Opened> m_waiting; ///< For the ends of their entries' children.
};

} // namespace ORV_3_30
