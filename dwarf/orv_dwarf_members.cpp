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

/// Types that are looked into for one address: bases and parts without a name do not make a name longer.
constexpr unsigned int k_mostTypes = 512;
constexpr std::size_t k_mostUnnamed = 64; ///< That hold one address side by side: empty bases.

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

/// The same by all that an entry tells. With the modern reading what tells nothing stands at the beginning, as the
/// parts of a union do, unless it is a static member, which stands elsewhere.
bool findOffset(AttrBindings& die, bool isModern, std::uint64_t& out) {
    AttrValue const* const location = die.attribute(DieAttributes::slot_MemberLocation);
    if (location != nullptr) {
        return memberOffset(*location, out);
    }
    out = die.number(DieAttributes::slot_DataBitOffset) / 8;
    return isModern && die.attribute(DieAttributes::slot_External) == nullptr;
}

/// Makes a bit field the bytes that it has a part in. Its offset is that of what it is stored in, or counted in bits.
void narrowToBits(AttrBindings& die, std::uint64_t& offset, std::uint64_t& size) {
    constexpr std::uint64_t k_bits = 8;
    std::uint64_t const bits = die.number(DieAttributes::slot_BitSize);
    std::uint64_t first = die.number(DieAttributes::slot_DataBitOffset) % k_bits;
    AttrValue const* const fromTop = die.attribute(DieAttributes::slot_BitOffset);
    if (bits == 0 || bits > k_bits * size) {
        return;
    }
    if (fromTop != nullptr) {
        AttrValue const* const stored = die.attribute(DieAttributes::slot_ByteSize);
        std::uint64_t const all = k_bits * (stored != nullptr ? stored->value : size);
        first = all - fromTop->value - bits;
        if (fromTop->value > all || bits > all - fromTop->value) {
            return;
        }
    }
    offset += first / k_bits;
    size = (first % k_bits + bits + k_bits - 1) / k_bits;
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
    bool const isModern = unit.reader().isModern();
    bool const mayBeUnnamed = isModern && m_all == nullptr;
    if (die.tag() != DW_TAG_member && !(mayBeUnnamed && die.tag() == DW_TAG_inheritance)) {
        return true;
    }
    char const* const name = die.name();
    DwarfPlace const type = die.target(DieAttributes::slot_Type);
    std::uint64_t offset = 0;
    if ((name == nullptr && !mayBeUnnamed) || !findOffset(die, isModern, offset)) {
        return true;
    }
    TypeInfo info{};
    bool const isSized = lookUpType(unit, type, m_search, info);
    std::uint64_t size = isSized ? info.size : 0;
    if (isModern) {
        narrowToBits(die, offset, size);
    }
    unsigned long long const start = m_start + offset;
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
    Found const found{name, start, type, info.tag, info.structure};
    if (name == nullptr) {
        if (m_unnamed.size() < k_mostUnnamed) {
            m_unnamed.push_back(found);
        }
        return true;
    }
    m_found = found;
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

namespace {

/// Where the search goes on below a member that has been found; no entry if it ends there.
DwarfPlace leadsOn(StructMemberVisitor::Found const& member, bool isModern) {
    if (isModern) {
        return member.structure;
    }
    bool const isOpen = member.typeTag == DW_TAG_class_type || member.typeTag == DW_TAG_structure_type;
    return isOpen ? member.type : DwarfPlace();
}

} // namespace

void appendMemberNames(DwarfPlace const& type, unsigned long long start, unsigned long long target, Budget& search,
                       std::string& name) {
    struct Part {
        DwarfPlace type;
        unsigned long long start;
    };
    if (!type) {
        return;
    }
    bool const isModern = type.unit->reader().isModern();
    std::vector<Part> open{{type, start}}; // the last one is looked into first
    unsigned int depth = 0;
    for (unsigned int steps = 0; !open.empty() && depth < k_deepestMember && steps < k_mostTypes; ++steps) {
        Part const part = open.back();
        open.pop_back();
        StructMemberVisitor visitor(part.start, target, search);
        visitType(part.type, visitor, search);
        StructMemberVisitor::Found const& member = visitor.found();
        if (member.name == nullptr) {
            auto const& unnamed = visitor.unnamed();
            for (auto one = unnamed.rbegin(); one != unnamed.rend(); ++one) {
                if (DwarfPlace const below = leadsOn(*one, isModern)) {
                    open.push_back({below, one->start});
                }
            }
            continue;
        }
        ++depth;
        name.append("::").append(member.name);
        open.clear();
        if (DwarfPlace const below = leadsOn(member, isModern)) {
            open.push_back({below, member.start});
        }
    }
}

} // namespace ORV_3_30
