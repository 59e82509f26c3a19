// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A walk over entries, one level or all, without recursion.
#include "dwarf/orv_dwarf_visitor.h"

#include "dwarf/orv_dwarf_unit.h"

namespace ORV_3_30 {

bool visitEntries(DwarfUnit& unit, DwarfWalker& walker, VisitDepth depth, DIEVisitor& visitor, Budget& search) {
    AttrBindings die(search);
    for (std::uint64_t openLists = 1; openLists != 0;) {
        if (!die.readDie(unit, walker)) {
            --openLists;
            continue;
        }
        if (!visitor.visit(unit, die)) {
            return false;
        }
        // Many entries may share an origin that is long.
        if (search.isSpent()) {
            return true;
        }
        if (die.getHasChildren() == 0) {
            continue;
        }
        if (depth == VisitDepth::AllLevels && visitor.enters(unit, die)) {
            ++openLists;
        } else {
            AttrValue const* const sibling = die.attribute(DieAttributes::slot_Sibling, true);
            unit.skipChildren(walker, sibling != nullptr ? sibling->value : 0);
        }
    }
    return true;
}

} // namespace ORV_3_30
