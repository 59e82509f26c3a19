// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Sizes of types (DWARF version 4, section 5), with a memory for each unit: references are followed with a bound.
#include "dwarf/orv_dwarf_types.h"

#include "dwarf/orv_dwarf_reader.h"

#include <algorithm>
#include <array>
#include <cstring>
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

/// With the modern reading a reference is a place of its own, whose size is that of an address, and what only adds a
/// property is the integer that its target is.
bool standsForTargetInModern(std::uint32_t tag) {
    switch (tag) {
    case DW_TAG_reference_type:
    case DW_TAG_rvalue_reference_type: return false;
    case DW_TAG_atomic_type:
    case DW_TAG_immutable_type:
    case DW_TAG_template_alias:
    case DW_TAG_enumeration_type:
    case DW_TAG_subrange_type: return true;
    default: return standsForTarget(tag);
    }
}

bool isAddress(std::uint32_t tag) {
    return tag == DW_TAG_pointer_type || tag == DW_TAG_reference_type || tag == DW_TAG_rvalue_reference_type ||
           tag == DW_TAG_ptr_to_member_type;
}

/// The type of nullptr, of which nothing but the name is told.
bool isNullPointer(AttrBindings& die) {
    constexpr char k_name[] = "decltype(nullptr)";
    char const* const name = die.tag() == DW_TAG_unspecified_type ? die.name() : nullptr;
    return name != nullptr && std::strncmp(name, k_name, sizeof(k_name)) == 0;
}

bool isNumber(AttrValue const* value) {
    return value != nullptr &&
           (value->form == DW_FORM_data8 || value->form == DW_FORM_udata || value->form == DW_FORM_sdata);
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
    TypeLookup(Budget& search, DwarfUnit const& asking) : m_search(search), m_die(search), m_asking(asking) {}

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
        bool const isModern = unit.reader().isModern();
        bool const isPointer = isModern && (isAddress(tag) || isNullPointer(m_die));
        // What is not kept is read again for each variable.
        m_isCut |= !m_search.settle(walker.offset() - offset) || m_die.isCut();
        // The targets are read where this entry was.
        TypeInfo target{0, {}, 0, false, false};
        out = {0, isStructure(tag) ? DwarfPlace{&unit, offset} : DwarfPlace(), tag, false, false};
        bool const isOther = isModern ? standsForTargetInModern(tag) : standsForTarget(tag);
        if (isOther && find(targetPlace, target, depth + 1)) {
            bool const showsInteger = isModern ? tag != DW_TAG_enumeration_type : tag == DW_TAG_typedef;
            out = {hasSize ? byteSize : target.size, target.structure, tag, showsInteger && target.isInteger, false};
            hasSize = true;
        } else if (hasSize) {
            out.size = byteSize;
        } else if (hasElements) {
            std::uint64_t count = 0;
            hasSize = find(targetPlace, target, depth + 1) && countElements(unit, walker, count) &&
                      (!isModern || count == 0 || target.size <= ~std::uint64_t{0} / count);
            out.size = target.size * count;
        } else if (isPointer) {
            hasSize = true;
            out.size = unit.forms().addrSize * wordsOf(targetPlace, tag, depth);
        }
        if (name != nullptr && !m_isCut) {
            std::string_view const text = name;
            out.isInteger = isIntegerName(text);
            m_isCut |= !m_search.settle(text.size());
        }
        return hasSize && !m_isCut;
    }

    /// How many addresses an address of some kind takes, where its type does not say: that of a member function is kept
    /// with an offset.
    unsigned int wordsOf(DwarfPlace const& targetPlace, std::uint32_t tag, unsigned int depth) {
        TypeInfo target{0, {}, 0, false, false};
        if (tag == DW_TAG_ptr_to_member_type) {
            find(targetPlace, target, depth + 1);
        }
        return target.tag == DW_TAG_subroutine_type ? 2 : 1;
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
            if (m_die.tag() == DW_TAG_subrange_type && unit.reader().isModern()) {
                isKnown = multiplyInModern(unit, m_die, count);
                m_isCut |= m_die.isCut();
                if (!isKnown) {
                    return false;
                }
            } else if (m_die.tag() == DW_TAG_subrange_type) {
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

    /// Of what a unit without a language shares, that of who asks.
    DwarfUnit::language_t languageOf(DwarfUnit const& unit) const {
        return unit.isPartial() && !unit.hasLanguage() ? m_asking.language() : unit.language();
    }

    /// By whatever form has a number; false for a dimension that is not told, and for more than can be counted.
    bool multiplyInModern(DwarfUnit& unit, AttrBindings& subrange, std::uint64_t& count) const {
        AttrValue const* const upper = subrange.attribute(DieAttributes::slot_UpperBound);
        AttrValue const* const lower = subrange.attribute(DieAttributes::slot_LowerBound);
        AttrValue const* const told = subrange.attribute(DieAttributes::slot_ElementCount);
        std::uint64_t elements = 0;
        if (isNumber(told)) {
            elements = told->value;
        } else if (isNumber(upper) && (lower == nullptr || isNumber(lower))) {
            DwarfUnit::language_t const language = languageOf(unit);
            bool const startsAtOne = language == DwarfUnit::language_Fortran || language == DwarfUnit::language_Ada;
            std::uint64_t const usual = startsAtOne ? 1 : 0;
            // One below the first: none.
            elements = upper->value - (lower != nullptr ? lower->value : usual) + 1;
        } else {
            return false;
        }
        constexpr std::uint64_t k_most = std::uint64_t{1} << 48; // no frame holds more; below 0 counts so too
        if (elements > k_most || (elements != 0 && count > k_most / elements)) {
            return false;
        }
        count *= elements;
        return true;
    }

    bool multiply(DwarfUnit& unit, AttrBindings& subrange, std::uint64_t& count) const {
        AttrValue const* const upper = subrange.attribute(DieAttributes::slot_UpperBound);
        AttrValue const* const lower = subrange.attribute(DieAttributes::slot_LowerBound);
        if (upper == nullptr || upper->form != DW_FORM_sdata || (lower != nullptr && lower->form != DW_FORM_sdata)) {
            return false;
        }
        auto const last = static_cast<std::int64_t>(upper->value);
        std::int64_t const missing = languageOf(unit) == DwarfUnit::language_Fortran ? 1 : 0;
        std::int64_t const first = lower != nullptr ? static_cast<std::int64_t>(lower->value) : missing;
        if (last <= first) {
            return false;
        }
        count *= static_cast<std::uint64_t>(last) - static_cast<std::uint64_t>(first) + 1;
        return true;
    }

    Budget& m_search;
    AttrBindings m_die; ///< One at a time.
    DwarfUnit const& m_asking;
    std::array<DwarfPlace, k_longestTypeChain> m_chain{}; ///< The types that we are in.
    bool m_isRing = false;                                ///< The chain leads back to itself.
    bool m_isTooLong = false;                             ///< The chain.
    bool m_isCut = false;                                 ///< By what a load may spend.
};

} // namespace

bool lookUpType(DwarfUnit& asking, DwarfPlace const& type, Budget& search, TypeInfo& out) {
    return TypeLookup(search, asking).find(type, out, 0);
}

} // namespace ORV_3_30
