// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// One walk over the entries below a function (DWARF version 4, 2.3 and 3.3.8). Bodies are painted over each other in
// the order of the file, so that the innermost is found by one binary search.
#include "dwarf/orv_dwarf_inline_tree.h"

#include "core/orv_trace.h"

#include <algorithm>

namespace ORV_3_30 {

class InlineTree::Reader {
public:
    Reader(InlineTree& tree, DwarfUnit& unit, unsigned long long firstStart)
        : m_tree(tree), m_unit(unit), m_search(nullptr, unit.reader().budgets().searchBytes()),
          m_firstStart(firstStart), m_walker(unit.unitWalker()) {}

    void read(std::uint64_t dieOffset) {
        m_tree.m_nodes.push_back({dieOffset, 0, 1});
        m_walker.seek(dieOffset);
        AbbrevEntry const* const entry = m_unit.abbrevs().find(m_walker.unsignedLeb());
        std::uint64_t sibling = 0;
        if (entry == nullptr || !m_unit.skipEntry(m_walker, *entry, sibling) || entry->hasChildren == 0) {
            return;
        }
        m_tree.m_nodes[k_root].tag = entry->tag;
        m_lists.assign(1, {k_root, true, k_none});
        while (!m_lists.empty()) {
            if (!step()) {
                close();
            }
        }
    }

private:
    /// A list of children that is open.
    struct List {
        Id node;    ///< That it lies in.
        bool isOwn; ///< The node's own, not that of a block in it.
        Id around;  ///< The innermost body.
    };

    void close() {
        List const list = m_lists.back();
        m_lists.pop_back();
        if (list.isOwn) {
            m_tree.m_nodes[list.node].behind = static_cast<Id>(m_tree.m_nodes.size());
        }
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
            if (m_tree.m_share.take()) {
                m_tree.m_options.push_back(offset);
            }
            return enter(*entry);
        case DW_TAG_subprogram:
        case DW_TAG_entry_point: return addNode(*entry, offset, m_unit.isFortran());
        case DW_TAG_class_type:
        case DW_TAG_structure_type:
        case DW_TAG_union_type: return m_unit.reader().isModern() ? enter(*entry) : passOver(*entry);
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
            m_lists.push_back({m_lists.back().node, false, m_lists.back().around});
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
        bool const isAffordable = m_tree.m_share.take();
        if (isAffordable) {
            m_tree.m_nodes.push_back({offset, entry.tag, id + 1});
        }
        if (entry.hasChildren != 0 && mayBeEntered && isAffordable) {
            m_lists.push_back({id, true, m_lists.back().around});
        } else if (entry.hasChildren != 0) {
            m_unit.skipChildren(m_walker, sibling);
        }
        return true;
    }

    /// Its list is read where it stands: a sibling is for those who pass over.
    bool addBody(AbbrevEntry const& entry, std::uint64_t offset) {
        DieAttributes& attributes = m_chain.start(m_unit, offset);
        if (!attributes.read(m_walker, m_unit.forms(), m_unit.abbrevs(), entry)) {
            return false;
        }
        if (m_chain.isDeclaration() || !m_tree.m_share.take()) {
            if (entry.hasChildren != 0) {
                m_unit.skipChildren(m_walker, attributes.number(DieAttributes::slot_Sibling));
            }
            return true;
        }
        auto const id = static_cast<Id>(m_tree.m_nodes.size());
        Body body;
        body.node = id;
        body.around = m_lists.back().around;
        bool const isMade = describe(body);
        Id const index = isMade ? static_cast<Id>(m_tree.m_bodies.size()) : k_none;
        m_tree.m_nodes.push_back({offset, entry.tag, id + 1, index});
        if (isMade) {
            m_tree.m_bodies.push_back(std::move(body));
        }
        if (entry.hasChildren != 0) {
            m_lists.push_back({id, true, isMade ? index : m_lists.back().around});
        }
        return true;
    }

    /// Name, place and call of the body that was read. False if no symbol comes of it.
    bool describe(Body& body) {
        DieAttributes const& own = m_chain.first();
        OriginFacts const origin = originFacts(own);
        if (origin.name == nullptr || !place(body, origin.hasPlace)) {
            return false;
        }
        body.name = origin.name;
        body.isExternal = origin.isExternal || own.has(DieAttributes::slot_External);
        body.callFile = m_unit.fileNumber(own.get(DieAttributes::slot_CallFile));
        body.callLine = own.number(DieAttributes::slot_CallLine);
        body.callColumn = own.number(DieAttributes::slot_CallColumn);
        body.discriminator = own.number(DieAttributes::slot_Discriminator);
        return true;
    }

    OriginFacts originFacts(DieAttributes const& own) {
        AttrValue const* const reference = own.origin();
        return reference != nullptr ? OriginTable::factsOf(m_unit, *reference) : OriginFacts();
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
                readRanges(m_unit, list, m_unit.compiler().kind == compiler_Varko ? &start : nullptr, m_pairs);
            for (auto const& [from, to] : m_pairs) {
                body.ranges.add(from, to);
            }
        } else if (low != nullptr || high != nullptr) {
            unsigned long long end = 0;
            rangeOfEntry(low, high, body.address, end);
            body.ranges.add(body.address, std::max(body.address, end));
        }
        return !body.ranges.empty() && m_unit.reader().isInSegment(body.address);
    }

    InlineTree& m_tree;
    DwarfUnit& m_unit;
    Budget m_search; ///< For the places that bodies have from their origins.
    unsigned long long m_firstStart;
    DwarfWalker m_walker;
    DieChain m_chain{m_search};
    std::vector<List> m_lists;
    AddressPairs m_pairs;
};

InlineTree::InlineTree(DwarfUnit& unit, std::uint64_t dieOffset, unsigned long long firstStart)
    : m_share(unit.reader().budgets().treeNodes) {
    Reader(*this, unit, firstStart).read(dieOffset);
    m_nodes.shrink_to_fit();
    m_bodies.shrink_to_fit();
    for (Id index = 0; index < m_bodies.size(); ++index) {
        RangeList const& ranges = m_bodies[index].ranges;
        for (std::size_t i = 0; i < ranges.size(); ++i) {
            m_runs.paint(ranges[i].start, ranges[i].end, index);
        }
    }
    m_runs.finish();
}

InlineTree::Body const* InlineTree::bodyAt(unsigned long long address) const {
    auto const* const run = m_runs.find(address);
    return run != nullptr ? &m_bodies[run->value] : nullptr;
}

} // namespace ORV_3_30
