// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Walks that show somebody every entry.
#pragma once

#include "dwarf/orv_dwarf_die.h"
#include "dwarf/orv_dwarf_unit.h"

namespace ORV_3_30 {

class DIEVisitor {
public:
    virtual ~DIEVisitor() = default;
    /// True to go on, false to end the walk.
    virtual bool visit(DwarfUnit& unit, AttrBindings& die) = 0;
    /// In a walk through all levels: false to pass over the children of an entry that it was shown.
    virtual bool enters(DwarfUnit& /*unit*/, AttrBindings& /*die*/) { return true; }
};

enum class VisitDepth { OneLevel, AllLevels };

/// Shows the entries of a list of children, in the order of the file. The walker stands on the first one.
/// False if the visitor has ended it. search: pays for origins; once it is spent the walk ends. No recursion.
bool visitEntries(DwarfUnit& unit, DwarfWalker& walker, VisitDepth depth, DIEVisitor& visitor, Budget& search);

} // namespace ORV_3_30
