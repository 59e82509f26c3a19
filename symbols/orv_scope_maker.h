// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Who makes the scopes of symbols that came into a table without one.
#pragma once

#include "symbols/orv_merge.h"

namespace ORV_3_30 {

struct RangeRecord;
class Scope;

/// Symbols come by the tens of thousands, and few are ever asked for. A loader that hands them to a table
/// as records is asked for the scope when somebody needs it. It outlives the table.
class IScopeMaker {
public:
    /// A scope with its symbol. One without a range gets the record's stretch for its one range; one that the maker
    /// keeps anyway comes with those that it has. Called from any thread, under locks of the table: takes none that
    /// lead to a load or a query.
    virtual Scope* makeScope(RangeRecord const& record, Scope* parent) = 0;
    /// What becomes of a newcomer that starts where one of its records does.
    virtual unsigned int mergeDecision(MergeSide const& mine, MergeSide const& other, MergeNext const& next) = 0;
    /// True if its symbols have a compilation unit.
    virtual bool givesUnits() const = 0;
    /// True if its symbols are inlined bodies.
    virtual bool givesInlines() const = 0;

protected:
    ~IScopeMaker() = default;
};

} // namespace ORV_3_30
