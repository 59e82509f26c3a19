// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Members of structures (DWARF version 4, 5.5.6), one level at a time.
#include "dwarf/orv_dwarf_members.h"

#include "dwarf/orv_dwarf_reader.h"
#include "dwarf/orv_dwarf_types.h"

#include <algorithm>
#include <iterator>

namespace ORV_3_30 {
namespace {

/// Structures in structures in structures. Only broken ones hold themselves.
constexpr unsigned int k_deepestMember = 64;
/// What an entry costs, however small it is: many variables may share a type.
constexpr std::uint64_t k_leastEntry = 16;

/// Where a member stands in its structure. False if that is not told in a way that is known.
bool memberOffset(AttrValue const& location, std::uint64_t& out) {
    switch (location.form) {
    case DW_FORM_sdata:
    case DW_FORM_udata:
    case DW_FORM_data8: out = location.value; return true;
    case DW_FORM_block:
    case DW_FORM_exprloc: {
        if (location.value == 0 || location.data[0] != DW_OP_plus_uconst) {
            return false;
        }
        DwarfWalker operand(location.data + 1, location.value - 1, 0);
        out = operand.unsignedLeb();
        return true;
    }
    default: return false;
    }
}

/// Shows a visitor the entries in a type.
void visitType(DwarfPlace const& type, DIEVisitor& visitor, Budget& search) {
    if (!type) {
        return;
    }
    DwarfUnit& unit = *type.unit;
    DwarfWalker walker = unit.unitWalker();
    walker.seek(type.offset);
    AbbrevEntry const* const entry = unit.abbrevs().find(walker.unsignedLeb());
    std::uint64_t sibling = 0;
    if (entry != nullptr && unit.skipEntry(walker, *entry, sibling) && entry->hasChildren != 0) {
        visitEntries(unit, walker, VisitDepth::OneLevel, visitor, search);
    }
}

} // namespace

bool StructMemberVisitor::visit(DwarfUnit& unit, AttrBindings& die) {
    if (!m_search.spend(k_leastEntry)) {
        return false;
    }
    if (die.tag() != DW_TAG_member) {
        return true;
    }
    char const* const name = die.name();
    AttrValue const* const location = die.attribute(DieAttributes::slot_MemberLocation);
    DwarfPlace const type = die.target(DieAttributes::slot_Type);
    std::uint64_t offset = 0;
    if (name == nullptr || location == nullptr || !memberOffset(*location, offset)) {
        return true;
    }
    TypeInfo info{};
    bool const isSized = lookUpType(unit, type, m_search, info);
    unsigned long long const start = m_start + offset;
    std::uint64_t const size = isSized ? info.size : 0;
    if (m_all != nullptr) {
        if (!unit.reader().budgets().members.spend(1)) {
            return false;
        }
        m_all->emplace(start, StructMember{name, std::max(start, start + size), {&unit, die.offset()}});
        return true;
    }
    if (start > m_target || m_target - start >= size) {
        return true;
    }
    m_found = {name, start, type, info.tag};
    return false;
}

bool leadsToMembers(std::uint32_t typeTag) {
    switch (typeTag) {
    case DW_TAG_class_type:
    case DW_TAG_structure_type:
    case DW_TAG_union_type:
    case DW_TAG_const_type:
    case DW_TAG_packed_type:
    case DW_TAG_volatile_type:
    case DW_TAG_restrict_type:
    case DW_TAG_mutable_type: return true;
    default: return false;
    }
}

StructMembers membersOf(DwarfPlace const& type, unsigned long long start, unsigned long long end, Budget& search) {
    StructMembers members;
    StructMemberVisitor visitor(start, members, search);
    visitType(type, visitor, search);
    if (!members.empty()) {
        auto const last = std::prev(members.end());
        last->second.end = std::max(last->first, std::min(last->second.end, end));
    }
    return members;
}

void appendMemberNames(DwarfPlace type, unsigned long long start, unsigned long long target, Budget& search,
                       std::string& name) {
    for (unsigned int depth = 0; depth < k_deepestMember; ++depth) {
        StructMemberVisitor visitor(start, target, search);
        visitType(type, visitor, search);
        StructMemberVisitor::Found const& member = visitor.found();
        if (member.name == nullptr) {
            return;
        }
        name.append("::").append(member.name);
        if (member.typeTag != DW_TAG_class_type && member.typeTag != DW_TAG_structure_type) {
            return;
        }
        start = member.start;
        type = member.type;
    }
}

} // namespace ORV_3_30
