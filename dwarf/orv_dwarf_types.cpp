// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Sizes of types (DWARF version 4, section 5), with a memory for each unit: references are followed with a bound.
#include "dwarf/orv_dwarf_types.h"

#include "dwarf/orv_dildwarf.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace ORV_3_30 {
namespace {

constexpr std::uint64_t k_noOffset = ~std::uint64_t{0};
/// Types that refer to types that refer to types. Real ones have a few links.
constexpr unsigned int k_longestTypeChain = 64;

/// Types that are their target under another name, or with a property more.
bool standsForTarget(std::uint32_t tag) {
    switch (tag) {
    case DW_TAG_typedef:
    case DW_TAG_reference_type:
    case DW_TAG_const_type:
    case DW_TAG_packed_type:
    case DW_TAG_volatile_type:
    case DW_TAG_restrict_type:
    case DW_TAG_mutable_type:
    case DW_TAG_rvalue_reference_type: return true;
    default: return false;
    }
}

bool isStructure(std::uint32_t tag) {
    return tag == DW_TAG_structure_type || tag == DW_TAG_class_type || tag == DW_TAG_union_type;
}

bool isIntegerName(char const* name) {
    std::size_t const size = std::strlen(name);
    bool const endsInInt = size >= 4 && std::strcmp(name + size - 4, " int") == 0;
    return endsInInt || std::strcmp(name, "int") == 0 || std::strcmp(name, "short") == 0 ||
           std::strcmp(name, "unsigned short") == 0;
}

class TypeLookup {
public:
    bool find(DWARFCompilationUnit& asked, std::uint64_t offset, TypeInfo& out, unsigned int depth) {
        m_isTooLong |= depth == k_longestTypeChain;
        if (offset == k_noOffset || depth == k_longestTypeChain) {
            return false;
        }
        if (std::find(m_chain.begin(), m_chain.begin() + depth, offset) != m_chain.begin() + depth) {
            m_isRing = true;
            return false;
        }
        m_chain[depth] = offset;
        DWARFCompilationUnit* const unit = asked.holds(offset) ? &asked : asked.loader()->findUnitByOffset(offset);
        if (unit == nullptr) {
            return false;
        }
        auto const known = unit->knownTypes().find(offset);
        if (known != unit->knownTypes().end()) {
            out = known->second;
            return out.isSized;
        }
        out.isSized = decode(*unit, offset, out, depth);
        // A failure may come of a bound alone, and another question get further. Of a ring it tells only where we
        // began.
        if (out.isSized || (!m_isCut && !m_isTooLong && (!m_isRing || depth == 0))) {
            unit->knownTypes()[offset] = out;
        }
        return out.isSized;
    }

private:
    bool decode(DWARFCompilationUnit& unit, std::uint64_t offset, TypeInfo& out, unsigned int depth) {
        DwarfWalker walker = unit.sectionWalker();
        walker.seek(offset);
        AttrBindings die(&unit, nullptr);
        if (!die.readDie(walker)) {
            return false;
        }
        auto const tag = static_cast<std::uint32_t>(die.tag());
        TypeInfo target{0, k_noOffset, 0, false, false};
        AttrBinding const* const type = die.attribute(DW_AT_type);
        bool hasSize = false;
        out = {0, k_noOffset, tag, false, false};
        if (standsForTarget(tag) && type != nullptr && find(unit, type->value, target, depth + 1)) {
            hasSize = true;
            out.size = target.size;
            out.structOffset = target.structOffset;
            out.isInteger = tag == DW_TAG_typedef && target.isInteger;
        }
        if (AttrBinding const* const size = die.attribute(DW_AT_byte_size)) {
            hasSize = true;
            out.size = size->value;
        } else if (tag == DW_TAG_array_type && type != nullptr && die.getHasChildren() != 0) {
            std::uint64_t count = 0;
            hasSize = find(unit, type->value, target, depth + 1) && countElements(unit, walker, count);
            out.size = target.size * count;
        }
        if (tag == DW_TAG_base_type) {
            AttrBinding const* const name = die.attribute(DW_AT_name);
            bool const isNamed = name != nullptr && name->data != nullptr;
            out.isInteger = isIntegerName(isNamed ? reinterpret_cast<char const*>(name->data) : "");
        }
        if (isStructure(tag)) {
            out.structOffset = offset;
        }
        // What is not kept is read again for each variable.
        m_isCut |= !unit.loader()->spendSearchBytes(walker.offset() - offset + die.originBytes());
        return hasSize && !m_isCut;
    }

    /// The number of elements, by the array's subranges. False if none of them tells its bounds.
    bool countElements(DWARFCompilationUnit& unit, DwarfWalker walker, std::uint64_t& count) {
        bool isKnown = false;
        count = 1;
        for (;;) {
            AttrBindings die(&unit, nullptr);
            if (!die.readDie(walker)) {
                return isKnown;
            }
            // Many types may name one array, and arrays lie in arrays in arrays.
            if (!unit.loader()->spendSearchBytes(walker.offset() - die.offset())) {
                m_isCut = true;
                return false;
            }
            if (die.tag() == DW_TAG_subrange_type) {
                isKnown = multiply(unit, die, count) || isKnown;
                m_isCut |= !unit.loader()->spendSearchBytes(die.originBytes());
            }
            if (die.getHasChildren() != 0) {
                std::uint64_t const before = walker.offset();
                unit.skipChildren(walker, 0);
                if (!unit.loader()->spendSearchBytes(walker.offset() - before)) {
                    m_isCut = true;
                    return false;
                }
            }
        }
    }

    static bool multiply(DWARFCompilationUnit& unit, AttrBindings& subrange, std::uint64_t& count) {
        AttrBinding const* const upper = subrange.attribute(DW_AT_upper_bound);
        AttrBinding const* const lower = subrange.attribute(DW_AT_lower_bound);
        if (upper == nullptr || upper->form != DW_FORM_sdata || (lower != nullptr && lower->form != DW_FORM_sdata)) {
            return false;
        }
        auto const last = static_cast<std::int64_t>(upper->value);
        std::int64_t const missing = unit.isFortran() ? 1 : 0;
        std::int64_t const first = lower != nullptr ? static_cast<std::int64_t>(lower->value) : missing;
        if (last <= first) {
            return false;
        }
        count *= static_cast<std::uint64_t>(last) - static_cast<std::uint64_t>(first) + 1;
        return true;
    }

    std::array<std::uint64_t, k_longestTypeChain> m_chain{}; ///< The types that we are in.
    bool m_isRing = false;                                   ///< The chain leads back to itself.
    bool m_isTooLong = false;                                ///< The chain.
    bool m_isCut = false;                                    ///< By what a load may spend.
};

} // namespace

bool lookUpType(DWARFCompilationUnit& unit, std::uint64_t offset, TypeInfo& out) {
    return TypeLookup().find(unit, offset, out, 0);
}

} // namespace ORV_3_30
