// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// One walk over the entries below a function (DWARF version 4, 2.3 and 3.3.8). Bodies are painted over each other in
// the order of the file, so that the innermost is found by one binary search.
#include "dwarf/orv_dwarf_inline_tree.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"

#include <algorithm>

namespace ORV_3_30 {

class InlineTree::Reader {
public:
    Reader(InlineTree& tree, DWARFCompilationUnit& unit, unsigned long long firstStart)
        : m_tree(tree), m_unit(unit), m_firstStart(firstStart), m_walker(unit.unitWalker()) {}

    void read(std::uint64_t dieOffset) {
        if (!readAll(dieOffset)) {
            // Some sibling leads elsewhere than behind its list. Who passes over bodies goes by them, so that what lies
            // in bodies may come again behind them: each is left to a tree of its own.
            m_goesBySiblings = true;
            readAll(dieOffset);
        }
    }

private:
    /// A list of children that is open.
    struct List {
        Id node;              ///< That it lies in.
        bool isOwn;           ///< The node's own, not that of a block in it.
        Id around;            ///< The innermost body.
        std::uint64_t behind; ///< Where the entry's sibling stands; 0 if that is not told.
    };

    /// False at a sibling that leads elsewhere.
    bool readAll(std::uint64_t dieOffset) {
        m_tree.m_nodes.clear();
        m_tree.m_bodies.clear();
        m_tree.m_options.clear();
        m_tree.m_nodes.push_back({dieOffset, 0, 1});
        m_walker.seek(dieOffset);
        AbbrevEntry const* const entry = m_unit.abbrevs().find(m_walker.unsignedLeb());
        std::uint64_t sibling = 0;
        if (entry == nullptr || !m_unit.skipEntry(m_walker, *entry, sibling) || entry->hasChildren == 0) {
            return true;
        }
        m_tree.m_nodes[k_root].tag = entry->tag;
        m_lists.assign(1, {k_root, true, k_none, 0});
        while (!m_lists.empty()) {
            if (!step() && !close()) {
                return false;
            }
        }
        return true;
    }

    bool close() {
        List const list = m_lists.back();
        m_lists.pop_back();
        if (list.isOwn) {
            m_tree.m_nodes[list.node].behind = static_cast<Id>(m_tree.m_nodes.size());
        }
        return list.behind == 0 || list.behind == m_walker.offset();
    }

    /// Reads one entry. False at the end of its list.
    bool step() {
        std::uint64_t const offset = m_walker.offset();
        std::uint64_t const code = m_walker.unsignedLeb();
        AbbrevEntry const* const entry = code != 0 ? m_unit.abbrevs().find(code) : nullptr;
        if (code == 0 || !ORV_ASSERT(entry != nullptr, "false")) {
            return false;
        }
        switch (entry->tag) {
        case DW_TAG_inlined_subroutine: return addBody(*entry, offset);
        case DW_TAG_common_block:
        case DW_TAG_module:
        case DW_TAG_lexical_block:
        case DW_TAG_try_block:
        case DW_TAG_compile_unit: return enter(*entry);
        case DW_TAG_unit_options:
            m_tree.m_options.push_back({static_cast<Id>(m_tree.m_nodes.size() - 1), offset});
            return enter(*entry);
        case DW_TAG_subprogram:
        case DW_TAG_entry_point: return addNode(*entry, offset, m_unit.isFortran());
        case DW_TAG_label: return addNode(*entry, offset, true);
        case DW_TAG_variable:
            return entry->mayBeStatic || entry->hasChildren != 0 ? addNode(*entry, offset, true) : passOver(*entry);
        default: return passOver(*entry);
        }
    }

    bool enter(AbbrevEntry const& entry) {
        std::uint64_t sibling = 0;
        if (!m_unit.skipEntry(m_walker, entry, sibling)) {
            return false;
        }
        if (entry.hasChildren != 0) {
            m_lists.push_back({m_lists.back().node, false, m_lists.back().around, 0});
        }
        return true;
    }

    bool passOver(AbbrevEntry const& entry) {
        std::uint64_t sibling = 0;
        if (!m_unit.skipEntry(m_walker, entry, sibling)) {
            return false;
        }
        if (entry.hasChildren != 0) {
            m_unit.skipChildren(m_walker, sibling);
        }
        return true;
    }

    /// What may make a symbol; whether it does, and whether it is entered, is for who asks.
    bool addNode(AbbrevEntry const& entry, std::uint64_t offset, bool mayBeEntered) {
        std::uint64_t sibling = 0;
        if (!m_unit.skipEntry(m_walker, entry, sibling)) {
            return false;
        }
        auto const id = static_cast<Id>(m_tree.m_nodes.size());
        m_tree.m_nodes.push_back({offset, entry.tag, id + 1});
        if (entry.hasChildren != 0 && mayBeEntered) {
            m_lists.push_back({id, true, m_lists.back().around, 0});
        } else if (entry.hasChildren != 0) {
            m_unit.skipChildren(m_walker, sibling);
        }
        return true;
    }

    bool addBody(AbbrevEntry const& entry, std::uint64_t offset) {
        DieAttributes& attributes = m_chain.start(m_unit, offset);
        if (!attributes.read(m_walker, m_unit.forms(), m_unit.abbrevs(), entry)) {
            return false;
        }
        std::uint64_t const told = m_unit.trustsSiblings() ? attributes.number(DieAttributes::slot_Sibling) : 0;
        std::uint64_t const sibling = told > m_walker.offset() ? told : 0;
        bool const isDeclared = m_chain.isDeclaration();
        auto const id = static_cast<Id>(m_tree.m_nodes.size());
        Id const around = m_lists.back().around;
        if (!isDeclared) {
            auto const index = static_cast<Id>(m_tree.m_bodies.size());
            m_tree.m_nodes.push_back({offset, entry.tag, id + 1, index});
            describe(m_tree.m_bodies.emplace_back(), around);
            m_tree.m_bodies.back().node = id;
        }
        if (entry.hasChildren == 0) {
            return true;
        }
        if (isDeclared || (m_goesBySiblings && sibling != 0)) {
            m_tree.m_nodes.back().isCut = !isDeclared;
            m_unit.skipChildren(m_walker, sibling);
            return true;
        }
        m_lists.push_back({id, true, m_tree.m_nodes[id].body, sibling});
        return true;
    }

    /// Name, place and call of the body that was read.
    void describe(Body& body, Id around) {
        DieAttributes const& own = m_chain.first();
        body.around = around;
        body.callFile = own.number(DieAttributes::slot_CallFile);
        body.callLine = own.number(DieAttributes::slot_CallLine);
        body.callColumn = own.number(DieAttributes::slot_CallColumn);
        body.discriminator = own.number(DieAttributes::slot_Discriminator);
        OriginFacts const origin = originFacts(own);
        if (origin.name != nullptr && place(body, origin.hasPlace)) {
            body.name = origin.name;
            body.isExternal = origin.isExternal || own.has(DieAttributes::slot_External);
        }
    }

    OriginFacts originFacts(DieAttributes const& own) {
        AttrValue const* reference = own.get(DieAttributes::slot_AbstractOrigin);
        if (reference == nullptr) {
            reference = own.get(DieAttributes::slot_Specification);
        }
        return reference != nullptr ? m_unit.loader()->origins().factsOf(m_unit, reference->value) : OriginFacts();
    }

    /// False if it has no place, or none in the module.
    bool place(Body& body, bool looksInOrigin) {
        auto const find = [&](DieAttributes::Slot slot) {
            return looksInOrigin ? m_chain.find(slot) : m_chain.first().get(slot);
        };
        AttrValue const* const low = find(DieAttributes::slot_LowPc);
        AttrValue const* const high = find(DieAttributes::slot_HighPc);
        AttrValue const* const list = find(DieAttributes::slot_Ranges);
        if ((low == nullptr || high == nullptr) && list != nullptr) {
            // One compiler selects bases that do not go for what lies behind the start of what is around.
            RangeList const* const outer = body.around != k_none ? &m_tree.m_bodies[body.around].ranges : nullptr;
            std::uint64_t const start = outer == nullptr || outer->empty() ? m_firstStart : (*outer)[0].start;
            m_pairs.clear();
            body.address =
                readRanges(m_unit, list, m_unit.compilerKind() == compiler_Varko ? &start : nullptr, m_pairs);
            for (auto const& [from, to] : m_pairs) {
                body.ranges.add(from, to);
            }
        } else if (low != nullptr || high != nullptr) {
            unsigned long long end = 0;
            rangeOfEntry(low, high, body.address, end);
            body.ranges.add(body.address, std::max(body.address, end));
        }
        return !body.ranges.empty() && m_unit.loader()->isInSegment(body.address);
    }

    InlineTree& m_tree;
    DWARFCompilationUnit& m_unit;
    unsigned long long m_firstStart;
    bool m_goesBySiblings = false;
    DwarfWalker m_walker;
    DieChain m_chain;
    std::vector<List> m_lists;
    AddressPairs m_pairs;
};

InlineTree::InlineTree(DWARFCompilationUnit& unit, std::uint64_t dieOffset, unsigned long long firstStart) {
    Reader(*this, unit, firstStart).read(dieOffset);
    for (Id index = 0; index < m_bodies.size(); ++index) {
        Body const& body = m_bodies[index];
        for (std::size_t i = 0; body.name != nullptr && i < body.ranges.size(); ++i) {
            m_runs.paint(body.ranges[i].start, body.ranges[i].end, index);
        }
    }
    m_runs.finish();
}

InlineTree::Body const* InlineTree::bodyAt(unsigned long long address) const {
    auto const* const run = m_runs.find(address);
    return run != nullptr ? &m_bodies[run->value] : nullptr;
}

} // namespace ORV_3_30
