// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Linkage names, and plain ones behind the names of what they stand in (DWARF version 5, 2.15 and 3.3.1).
#include "dwarf/orv_dwarf_names.h"

#include "dwarf/orv_dwarf_reader.h"

#include <cstring>
#include <vector>

namespace ORV_3_30 {
namespace {

/// What stands for a container without a name.
char const* unnamed(std::uint32_t tag) {
    switch (tag) {
    case DW_TAG_namespace: return "(anonymous namespace)";
    case DW_TAG_class_type: return "(anonymous class)";
    case DW_TAG_structure_type: return "(anonymous struct)";
    case DW_TAG_union_type: return "(anonymous union)";
    default: return "(anonymous)";
    }
}

/// More are cut: what is innermost tells most.
constexpr std::size_t k_mostParts = 64;
constexpr std::size_t k_longestPart = std::size_t{1} << 16; // what stands behind it is cut

} // namespace

std::size_t DwarfNames::PlaceHash::operator()(DwarfPlace const& place) const {
    constexpr std::uint64_t k_mix = 0x9E3779B97F4A7C15;
    return (place.offset ^ reinterpret_cast<std::uintptr_t>(place.unit)) * k_mix >> 16;
}

char const* DwarfNames::of(DieChain& chain) {
    DieChain::Named const linkage = chain.linkageName();
    if (linkage.place) {
        return linkage.text;
    }
    DieChain::Named const plain = chain.plainName();
    bool const isQualified = plain.text != nullptr && plain.place.unit->qualifiesNames();
    return isQualified ? qualified(plain.place, plain.text) : plain.text;
}

char const* DwarfNames::qualified(DwarfPlace const& place, char const* name) {
    DwarfPlace around{place.unit, place.unit->containers().around(place.offset)};
    if (around.offset == 0) {
        return name;
    }
    {
        std::lock_guard<std::mutex> const guard(m_lock);
        auto const known = m_qualified.find(place);
        if (known != m_qualified.end()) {
            return known->second.c_str();
        }
    }
    DwarfBudgets& budgets = place.unit->reader().budgets();
    if (budgets.textBytes.isSpent()) {
        return name;
    }
    std::vector<char const*> parts{name};
    std::size_t size = ::strnlen(name, k_longestPart);
    DieChain chain(budgets.origins);
    while (around.offset != 0 && parts.size() < k_mostParts && chain.startAtOrigin(around)) {
        DieChain::Named const part = chain.plainName();
        parts.push_back(part.text != nullptr ? part.text : unnamed(chain.tag()));
        size += ::strnlen(parts.back(), k_longestPart) + 2;
        // A function that is defined elsewhere stands where it was declared.
        DwarfPlace const stands = part.place ? part.place : around;
        around = {stands.unit, stands.unit->containers().around(stands.offset)};
    }
    if (!budgets.textBytes.settle(size)) {
        return name;
    }
    std::string text;
    text.reserve(size);
    for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
        text += text.empty() ? "" : "::";
        text.append(*part, ::strnlen(*part, k_longestPart));
    }
    std::lock_guard<std::mutex> const guard(m_lock);
    return m_qualified.emplace(place, std::move(text)).first->second.c_str();
}

} // namespace ORV_3_30
