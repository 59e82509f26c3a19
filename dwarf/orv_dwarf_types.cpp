// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Sizes of types (DWARF version 4, section 5), with a memory for each unit: references are followed with a bound.
#include "dwarf/orv_dwarf_types.h"

#include "dwarf/orv_dwarf_reader.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace ORV_3_30 {
namespace {

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

bool isIntegerName(std::string_view name) {
    constexpr std::string_view k_end = " int";
    bool const endsInInt = name.size() >= k_end.size() && name.substr(name.size() - k_end.size()) == k_end;
    return endsInInt || name == "int" || name == "short" || name == "unsigned short";
}

class TypeLookup {
public:
    TypeLookup(Budget& search, bool asksFortran) : m_search(search), m_die(search), m_asksFortran(asksFortran) {}

    bool find(DwarfPlace const& type, TypeInfo& out, unsigned int depth) {
        if (!type) {
            return false;
        }
        if (depth == k_longestTypeChain) {
            m_isTooLong = true;
            return false;
        }
        if (std::find(m_chain.begin(), m_chain.begin() + depth, type) != m_chain.begin() + depth) {
            m_isRing = true;
            return false;
        }
        m_chain[depth] = type;
        auto& knownTypes = type.unit->knownTypes();
        auto const known = knownTypes.find(type.offset);
        if (known != knownTypes.end()) {
            out = known->second;
            return out.isSized;
        }
        out.isSized = decode(*type.unit, type.offset, out, depth);
        // A failure may come of a bound alone, and another question get further. Of a ring it tells only where we
        // began.
        if (out.isSized || (!m_isCut && !m_isTooLong && (!m_isRing || depth == 0))) {
            knownTypes[type.offset] = out;
        }
        return out.isSized;
    }

private:
    bool decode(DwarfUnit& unit, std::uint64_t offset, TypeInfo& out, unsigned int depth) {
        DwarfWalker walker = unit.sectionWalker();
        walker.seek(offset);
        m_isCut = m_isCut || m_search.isSpent();
        if (m_isCut || !m_die.readDie(unit, walker)) {
            return false;
        }
        std::uint32_t const tag = m_die.tag();
        DwarfPlace const targetPlace = m_die.target(DieAttributes::slot_Type);
        AttrValue const* const size = m_die.attribute(DieAttributes::slot_ByteSize);
        bool hasSize = size != nullptr;
        std::uint64_t const byteSize = hasSize ? size->value : 0;
        bool const hasElements = !hasSize && tag == DW_TAG_array_type && m_die.getHasChildren() != 0;
        char const* const name = tag == DW_TAG_base_type ? m_die.name() : nullptr;
        // What is not kept is read again for each variable.
        m_isCut |= !m_search.settle(walker.offset() - offset) || m_die.isCut();
        // The targets are read where this entry was.
        TypeInfo target{0, {}, 0, false, false};
        out = {0, isStructure(tag) ? DwarfPlace{&unit, offset} : DwarfPlace(), tag, false, false};
        if (standsForTarget(tag) && find(targetPlace, target, depth + 1)) {
            out = {hasSize ? byteSize : target.size, target.structure, tag, tag == DW_TAG_typedef && target.isInteger,
                   false};
            hasSize = true;
        } else if (hasSize) {
            out.size = byteSize;
        } else if (hasElements) {
            std::uint64_t count = 0;
            hasSize = find(targetPlace, target, depth + 1) && countElements(unit, walker, count);
            out.size = target.size * count;
        }
        if (name != nullptr && !m_isCut) {
            std::string_view const text = name;
            out.isInteger = isIntegerName(text);
            m_isCut |= !m_search.settle(text.size());
        }
        return hasSize && !m_isCut;
    }

    /// The number of elements, by the array's subranges. False if none of them tells its bounds.
    bool countElements(DwarfUnit& unit, DwarfWalker walker, std::uint64_t& count) {
        bool isKnown = false;
        count = 1;
        for (;;) {
            std::uint64_t const begin = walker.offset();
            if (!m_die.readDie(unit, walker)) {
                return isKnown;
            }
            // Many types may name one array, and arrays lie in arrays in arrays.
            if (!m_search.settle(walker.offset() - begin)) {
                m_isCut = true;
                return false;
            }
            if (m_die.tag() == DW_TAG_subrange_type) {
                isKnown = multiply(unit, m_die, count) || isKnown;
                m_isCut |= m_die.isCut();
            }
            if (m_die.getHasChildren() != 0) {
                std::uint64_t const before = walker.offset();
                unit.skipChildren(walker, 0);
                if (!m_search.settle(walker.offset() - before)) {
                    m_isCut = true;
                    return false;
                }
            }
        }
    }

    bool multiply(DwarfUnit& unit, AttrBindings& subrange, std::uint64_t& count) const {
        AttrValue const* const upper = subrange.attribute(DieAttributes::slot_UpperBound);
        AttrValue const* const lower = subrange.attribute(DieAttributes::slot_LowerBound);
        if (upper == nullptr || upper->form != DW_FORM_sdata || (lower != nullptr && lower->form != DW_FORM_sdata)) {
            return false;
        }
        auto const last = static_cast<std::int64_t>(upper->value);
        bool const isFortran = unit.isPartial() && !unit.hasLanguage() ? m_asksFortran : unit.isFortran();
        std::int64_t const missing = isFortran ? 1 : 0;
        std::int64_t const first = lower != nullptr ? static_cast<std::int64_t>(lower->value) : missing;
        if (last <= first) {
            return false;
        }
        count *= static_cast<std::uint64_t>(last) - static_cast<std::uint64_t>(first) + 1;
        return true;
    }

    Budget& m_search;
    AttrBindings m_die; ///< One at a time.
    bool m_asksFortran;
    std::array<DwarfPlace, k_longestTypeChain> m_chain{}; ///< The types that we are in.
    bool m_isRing = false;                                ///< The chain leads back to itself.
    bool m_isTooLong = false;                             ///< The chain.
    bool m_isCut = false;                                 ///< By what a load may spend.
};

} // namespace

bool lookUpType(DwarfUnit& asking, DwarfPlace const& type, Budget& search, TypeInfo& out) {
    return TypeLookup(search, asking.isFortran()).find(type, out, 0);
}

} // namespace ORV_3_30
