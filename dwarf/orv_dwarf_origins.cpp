// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A striped cache of what entries learn from their origins, by offset.
#include "dwarf/orv_dwarf_origins.h"

#include "dwarf/orv_dwarf_reader.h"

namespace ORV_3_30 {
namespace {

std::uint64_t numberOf(DieChain& chain, DieAttributes::Slot slot) {
    AttrValue const* const value = chain.find(slot);
    return value != nullptr ? value->value : 0;
}

OriginFacts readFacts(DwarfPlace const& place) {
    OriginFacts facts;
    DieChain chain(place.unit->reader().budgets().origins);
    if (chain.startAtOrigin(place)) {
        facts.name = place.unit->reader().names().of(chain);
        facts.isExternal = chain.find(DieAttributes::slot_External) != nullptr;
        for (auto const slot : {DieAttributes::slot_LowPc, DieAttributes::slot_HighPc, DieAttributes::slot_Ranges}) {
            facts.hasPlace |= chain.find(slot) != nullptr;
        }
        AttrValue const* const file = chain.find(DieAttributes::slot_DeclFile, facts.declared.unit);
        facts.declared.file = file != nullptr ? facts.declared.unit->fileNumber(file) : k_noFile;
        facts.declared.line = numberOf(chain, DieAttributes::slot_DeclLine);
        facts.declared.column = numberOf(chain, DieAttributes::slot_DeclColumn);
        facts.declared.discriminator = numberOf(chain, DieAttributes::slot_Discriminator);
    }
    if (chain.isCut()) {
        facts = OriginFacts();
        facts.isCut = true;
    }
    return facts;
}

} // namespace

OriginFacts OriginTable::factsOf(DwarfUnit& asking, AttrValue const& reference) {
    DwarfPlace const place = asking.target(reference);
    return place ? place.unit->reader().origins().factsOf(place) : OriginFacts();
}

OriginFacts OriginTable::factsOf(DwarfPlace const& place) {
    std::uint64_t const offset = place.offset;
    constexpr std::uint64_t k_mix = 0x9E3779B97F4A7C15; // entries stand at all distances
    auto& shelves = m_shelves.get([this] { return std::make_unique<std::vector<Shelf>>(m_count); });
    Shelf& shelf = shelves[(offset * k_mix >> 32) % m_count];
    std::lock_guard<std::mutex> const guard(shelf.lock);
    auto const known = shelf.facts.find(offset);
    if (known != shelf.facts.end()) {
        return known->second;
    }
    OriginFacts const facts = readFacts(place);
    if (!facts.isCut) { // otherwise another question may get further
        shelf.facts.emplace(offset, facts);
    }
    return facts;
}

} // namespace ORV_3_30
