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

} // namespace

std::size_t DwarfNames::PlaceHash::operator()(Place const& place) const {
    constexpr std::uint64_t k_mix = 0x9E3779B97F4A7C15;
    return (place.offset ^ reinterpret_cast<std::uintptr_t>(place.unit)) * k_mix >> 16;
}

char const* DwarfNames::of(DieChain& chain) {
    DieChain::Named const linkage = chain.linkageName();
    if (linkage.unit != nullptr) {
        return linkage.text;
    }
    DieChain::Named const plain = chain.plainName();
    bool const isQualified = plain.text != nullptr && plain.unit->qualifiesNames();
    return isQualified ? qualified(*plain.unit, plain.offset, plain.text) : plain.text;
}

char const* DwarfNames::qualified(DwarfUnit& unit, std::uint64_t dieOffset, char const* name) {
    std::uint64_t around = unit.containers().around(dieOffset);
    if (around == 0) {
        return name;
    }
    {
        std::lock_guard<std::mutex> const guard(m_lock);
        auto const known = m_qualified.find({&unit, dieOffset});
        if (known != m_qualified.end()) {
            return known->second.c_str();
        }
    }
    DwarfBudgets& budgets = unit.reader().budgets();
    std::vector<char const*> parts{name};
    std::size_t size = std::strlen(name);
    DwarfUnit* at = &unit;
    DieChain chain(budgets.origins);
    while (around != 0 && parts.size() < k_mostParts && chain.startAtOrigin(*at, around)) {
        DieChain::Named const part = chain.plainName();
        parts.push_back(part.text != nullptr ? part.text : unnamed(chain.tag()));
        size += std::strlen(parts.back()) + 2;
        // A function that is defined elsewhere stands where it was declared.
        at = part.unit != nullptr ? part.unit : at;
        around = at->containers().around(part.unit != nullptr ? part.offset : around);
    }
    if (!budgets.textBytes.spend(size)) {
        return name;
    }
    std::string text;
    text.reserve(size);
    for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
        text += text.empty() ? "" : "::";
        text += *part;
    }
    std::lock_guard<std::mutex> const guard(m_lock);
    return m_qualified.emplace(Place{&unit, dieOffset}, std::move(text)).first->second.c_str();
}

} // namespace ORV_3_30
