// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// One walk over the entries of a unit (DWARF version 5, 2.3) keeps the stretches of those that others stand in; the
// innermost one is found by binary search, and by the parents from there.
#include "dwarf/orv_dwarf_containers.h"

#include "dwarf/orv_dwarf_reader.h"

#include <algorithm>

namespace ORV_3_30 {

bool isContainer(std::uint32_t tag) {
    switch (tag) {
    case DW_TAG_namespace:
    case DW_TAG_module:
    case DW_TAG_class_type:
    case DW_TAG_structure_type:
    case DW_TAG_union_type:
    case DW_TAG_interface_type:
    case DW_TAG_subprogram: return true;
    default: return false;
    }
}

/// Opens and closes the lists of a unit's entries as they come.
class Containers::Finder {
public:
    Finder(Containers& found, Budget& budget) : m_found(found.m_containers), m_budget(budget) {}

    void open(AbbrevEntry const& entry, std::uint64_t offset) {
        std::uint32_t const around = innermost();
        std::uint32_t const depth = around == k_none ? 0 : m_found[around].depth + 1;
        bool const isKept = isContainer(entry.tag) && depth < k_deepest && m_budget.spend(1);
        if (isKept) {
            m_found.push_back({offset, ~0ULL, around, depth, entry.tag != DW_TAG_subprogram});
        }
        m_open.push_back(isKept ? static_cast<std::uint32_t>(m_found.size() - 1) : around);
    }

    /// An entry that may be asked for.
    void note(AbbrevEntry const& entry) {
        bool const isNamed = entry.tag == DW_TAG_subprogram || (entry.tag == DW_TAG_variable && entry.mayBeStatic);
        if (isNamed && innermost() != k_none) {
            m_found[innermost()].isNeeded = true;
        }
    }

    /// Ends a list. A function that nothing stands in, as nearly all are, is forgotten.
    void close(std::uint64_t offset) {
        std::uint32_t const closed = innermost();
        m_open.pop_back();
        if (closed == k_none || closed == innermost()) {
            return;
        }
        m_found[closed].end = offset;
        if (!m_found[closed].isNeeded && closed == m_found.size() - 1) {
            m_found.pop_back();
            m_budget.giveBack(1);
        }
    }

    bool isDone() const { return m_open.empty(); }

private:
    std::uint32_t innermost() const { return m_open.empty() ? k_none : m_open.back(); }

    std::vector<Container>& m_found;
    Budget& m_budget;
    std::vector<std::uint32_t> m_open; ///< The container of each list.
};

Containers::Containers(DwarfUnit const& unit) {
    Finder finder(*this, unit.reader().budgets().containers);
    DwarfWalker walker = unit.unitWalker();
    walker.seek(unit.header().firstDie);
    do {
        std::uint64_t const offset = walker.offset();
        std::uint64_t const code = walker.unsignedLeb();
        AbbrevEntry const* const entry = code != 0 ? unit.abbrevs().find(code) : nullptr;
        std::uint64_t sibling = 0;
        if (entry != nullptr && unit.skipEntry(walker, *entry, sibling)) {
            finder.note(*entry);
            if (entry->hasChildren != 0) {
                finder.open(*entry, offset);
            }
        } else if (!finder.isDone()) {
            finder.close(walker.offset());
        }
    } while (!finder.isDone());
    m_containers.shrink_to_fit();
}

std::uint64_t Containers::around(std::uint64_t dieOffset) const {
    auto const after =
        std::lower_bound(m_containers.begin(), m_containers.end(), dieOffset,
                         [](Container const& container, std::uint64_t at) { return container.begin < at; });
    auto index = after == m_containers.begin() ? k_none : static_cast<std::uint32_t>(after - m_containers.begin() - 1);
    while (index != k_none && m_containers[index].end <= dieOffset) {
        index = m_containers[index].parent;
    }
    return index != k_none ? m_containers[index].begin : 0;
}

} // namespace ORV_3_30
