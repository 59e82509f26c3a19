/// One range of one scope in a symbol table.
#pragma once

namespace ORV_3_30 {

class Scope;

/// Lives as long as the table. Half open, in pseudo addresses; start equal to end is a label.
struct RangeRecord {
    unsigned long long start;
    unsigned long long end;
    Scope* scope;          ///< The table holds a reference on it.
    RangeRecord* next;     ///< The next record with the same start, by end, the greatest first.
    unsigned long long order; ///< Arrival: of equal ends, the one that came first stands in front.

    bool isPoint() const { return start == end; }
};

} // namespace ORV_3_30
