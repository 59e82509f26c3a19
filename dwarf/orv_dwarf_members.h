// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The members of structures, by address.
#pragma once

#include "dwarf/orv_dwarf_visitor.h"

#include <map>
#include <string>
#include <vector>

namespace ORV_3_30 {

/// A member of a variable.
struct StructMember {
    char const* name; ///< In a section.
    unsigned long long end;
    DwarfPlace place;
};
using StructMembers = std::map<unsigned long long, StructMember>; ///< By start; of several, as in a union, the first.

/// Looks at the members of one type, one level deep: it finds the one that holds an address, or lists them all.
class StructMemberVisitor final : public DIEVisitor {
public:
    /// Finds the member at target of a variable that starts at an address.
    StructMemberVisitor(unsigned long long start, unsigned long long target, Budget& search)
        : m_search(search), m_start(start), m_target(target) {}
    /// Lists the members.
    StructMemberVisitor(unsigned long long start, StructMembers& all, Budget& search)
        : m_search(search), m_start(start), m_all(&all) {}

    bool visit(DwarfUnit& unit, AttrBindings& die) override;

    /// The member that was found; its name is null without one.
    struct Found {
        char const* name = nullptr;
        unsigned long long start = 0;
        DwarfPlace type;
        std::uint32_t typeTag = 0;
        DwarfPlace structure; ///< That its type is; no entry for other types.
    };
    Found const& found() const { return m_found; }
    /// With the modern reading: bases and members without a name that hold the target. None where one with a name does.
    std::vector<Found> const& unnamed() const { return m_unnamed; }

private:
    Budget& m_search;
    unsigned long long m_start;
    unsigned long long m_target = 0;
    StructMembers* m_all = nullptr;
    Found m_found;
    std::vector<Found> m_unnamed;
};

/// True for the types of variables that have scopes for their members: classes, structures and unions, and
/// what only adds a property to one.
bool leadsToMembers(std::uint32_t typeTag);
/// The members of a variable over [start, end) of a type. The last one ends with the variable.
StructMembers membersOf(DwarfPlace const& type, unsigned long long start, unsigned long long end, Budget& search);
/// Adds "::" and the name of the member at target, and of the member in that one, as far as there is one. With the
/// modern reading members of a base, and of a part without a name, count as those of the structure itself.
void appendMemberNames(DwarfPlace const& type, unsigned long long start, unsigned long long target, Budget& search,
                       std::string& name);

} // namespace ORV_3_30
