// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Members of structures (DWARF version 4, 5.5.6), one level at a time.
#include "dwarf/orv_dwarf_members.h"

#include "dwarf/orv_dildwarf.h"
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
bool memberOffset(AttrBinding const& location, std::uint64_t& out) {
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

/// Shows a visitor the entries in the type at an offset.
void visitType(DWARFCompilationUnit& asked, std::uint64_t typeOffset, DIEVisitor& visitor) {
    DWARFCompilationUnit* const unit = asked.holds(typeOffset) ? &asked : asked.loader()->findUnitByOffset(typeOffset);
    if (unit == nullptr) {
        return;
    }
    DwarfWalker walker = unit->unitWalker();
    walker.seek(typeOffset);
    AttrBindings type(unit, nullptr);
    if (type.readDie(walker) && type.getHasChildren() != 0) {
        visitEntries(*unit, walker, VisitDepth::OneLevel, visitor);
    }
}

} // namespace

bool StructMemberVisitor::visit(DWARFCompilationUnit& unit, AttrBindings& die) {
    if (!unit.loader()->spendSearchBytes(k_leastEntry)) {
        return false;
    }
    if (die.tag() != DW_TAG_member) {
        return true;
    }
    AttrBinding const* const name = die.attribute(DW_AT_name);
    AttrBinding const* const location = die.attribute(DW_AT_data_member_location);
    AttrBinding const* const type = die.attribute(DW_AT_type);
    std::uint64_t offset = 0;
    if (name == nullptr || name->data == nullptr || location == nullptr || !memberOffset(*location, offset)) {
        return true;
    }
    TypeInfo info{};
    bool const isSized = type != nullptr && lookUpType(unit, type->value, info);
    unsigned long long const start = m_start + offset;
    std::uint64_t const size = isSized ? info.size : 0;
    auto const* const text = reinterpret_cast<char const*>(name->data);
    if (m_all != nullptr) {
        if (!unit.loader()->spendMember()) {
            return false;
        }
        m_all->emplace(start, StructMember{text, std::max(start, start + size), die.offset()});
        return true;
    }
    if (start > m_target || m_target - start >= size) {
        return true;
    }
    m_found = {text, start, type != nullptr ? type->value : 0, info.tag};
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

StructMembers membersOf(DWARFCompilationUnit& unit, std::uint64_t typeOffset, unsigned long long start,
                        unsigned long long end) {
    StructMembers members;
    StructMemberVisitor visitor(start, members);
    visitType(unit, typeOffset, visitor);
    if (!members.empty()) {
        auto const last = std::prev(members.end());
        last->second.end = std::max(last->first, std::min(last->second.end, end));
    }
    return members;
}

void appendMemberNames(DWARFCompilationUnit& unit, std::uint64_t typeOffset, unsigned long long start,
                       unsigned long long target, std::string& name) {
    for (unsigned int depth = 0; depth < k_deepestMember; ++depth) {
        StructMemberVisitor visitor(start, target);
        visitType(unit, typeOffset, visitor);
        StructMemberVisitor::Found const& member = visitor.found();
        if (member.name == nullptr) {
            return;
        }
        name.append("::").append(member.name);
        if (member.typeTag != DW_TAG_class_type && member.typeTag != DW_TAG_structure_type) {
            return;
        }
        start = member.start;
        typeOffset = member.typeOffset;
    }
}

} // namespace ORV_3_30
