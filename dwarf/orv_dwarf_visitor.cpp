// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A walk over entries, one level or all, without recursion.
#include "dwarf/orv_dwarf_visitor.h"

#include "dwarf/orv_dildwarf.h"

namespace ORV_3_30 {

bool visitEntries(DWARFCompilationUnit& unit, DwarfWalker& walker, VisitDepth depth, DIEVisitor& visitor) {
    for (std::uint64_t openLists = 1; openLists != 0;) {
        AttrBindings die(&unit, nullptr);
        if (!die.readDie(walker)) {
            --openLists;
            continue;
        }
        if (!visitor.visit(unit, die)) {
            return false;
        }
        // Many entries may share an origin that is long.
        if (!unit.loader()->spendSearchBytes(die.originBytes())) {
            return true;
        }
        if (die.getHasChildren() == 0) {
            continue;
        }
        if (depth == VisitDepth::AllLevels) {
            ++openLists;
        } else {
            AttrBinding const* const sibling = die.attribute(DW_AT_sibling, true);
            unit.skipChildren(walker, sibling != nullptr ? sibling->value : 0);
        }
    }
    return true;
}

} // namespace ORV_3_30
