// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Abbreviation tables (DWARF version 4, 7.5.3), decoded once for each offset. Fixed sizes are added up, so that an
// entry is passed over in one step where its forms allow that.
#include "dwarf/orv_dwarf_abbrev.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dwarf_constants.h"
#include "dwarf/orv_dwarf_die.h"

#include <algorithm>
#include <limits>

namespace ORV_3_30 {
namespace {

template <typename T> T saturated(std::uint64_t value) {
    return static_cast<T>(std::min<std::uint64_t>(value, std::numeric_limits<T>::max()));
}

/// Twice the section is more than units that don't share their tables ever need.
constexpr std::uint64_t k_rereads = 2;
constexpr std::uint64_t k_leastBudget = std::uint64_t{1} << 20;

} // namespace

std::uint64_t AbbrevTable::read(DwarfWalker walker, FormContext const& context) {
    std::uint64_t const begin = walker.offset();
    bool hasFirst = false;
    while (!walker.atEnd()) {
        std::uint64_t const code = walker.unsignedLeb();
        // A second code 1 is the next table: some producers leave the terminator out.
        if (code == 0 || (code == 1 && hasFirst)) {
            break;
        }
        hasFirst |= code == 1;
        AbbrevEntry entry{};
        entry.tag = saturated<std::uint32_t>(walker.unsignedLeb());
        walker.getUnsigned1(entry.hasChildren);
        readSpecs(walker, context, entry);
        ORV_ASSERT(m_abbrevsMap.find(code) == 0, "m_abbrevsMap[abbrevCode] == NULL");
        m_entries.push_back(entry);
        m_abbrevsMap.store(code, static_cast<std::uint32_t>(m_entries.size()));
    }
    return walker.offset() - begin;
}

void AbbrevTable::readSpecs(DwarfWalker& walker, FormContext const& context, AbbrevEntry& entry) {
    m_specs.clear();
    while (!walker.atEnd()) {
        std::uint64_t const attr = walker.unsignedLeb();
        std::uint64_t const form = walker.unsignedLeb();
        if (attr == 0) {
            break; // whatever the form is
        }
        bool const hasConstant = form == DW_FORM_implicit_const && context.tables != nullptr;
        std::int64_t const constant = hasConstant ? walker.signedLeb() : 0;
        auto const kept = saturated<std::uint32_t>(attr);
        auto const keptForm = static_cast<std::uint16_t>(form <= 0xFFFF ? form : 0);
        m_specs.push_back({kept, keptForm, constant});
    }
    makeSteps(context, entry);
}

void AbbrevTable::makeSteps(FormContext const& context, AbbrevEntry& entry) {
    entry.firstStep = static_cast<std::uint32_t>(m_steps.size());
    std::uint64_t seen = 0; // by slot: of two attributes with one code the first stands
    std::uint32_t pending = 0;
    bool hasList = false;
    for (AbbrevSpec const& spec : m_specs) {
        unsigned int const size = sizeOfForm(context, spec.form);
        if (spec.attr == DW_AT_sibling && entry.siblingForm == 0) {
            entry.siblingAt = entry.skipSize;
            entry.siblingForm = spec.form;
        }
        bool const isNoBlock = spec.form == DW_FORM_sec_offset || spec.form == DW_FORM_data4 ||
                               spec.form == DW_FORM_data8 ||
                               (spec.form == DW_FORM_loclistx && context.tables != nullptr);
        bool const isOrigin = spec.attr == DW_AT_abstract_origin || spec.attr == DW_AT_specification;
        hasList |= spec.attr == DW_AT_location && isNoBlock;
        entry.mayBeStatic |= isOrigin || (spec.attr == DW_AT_location && !isNoBlock);
        entry.tellsPlace |= spec.attr == DW_AT_low_pc || spec.attr == DW_AT_high_pc || spec.attr == DW_AT_ranges;
        entry.isDeclaration |= spec.attr == DW_AT_declaration;
        bool const isFixed = entry.skipSize != AbbrevEntry::k_variable && size != k_variableSize;
        entry.skipSize = isFixed ? entry.skipSize + size : AbbrevEntry::k_variable;
        std::uint8_t slot = DieAttributes::slotOf(spec.attr);
        if ((seen & std::uint64_t{1} << slot) != 0) {
            slot = DieAttributes::slot_None;
        }
        if (slot == DieAttributes::slot_None && size != k_variableSize) {
            pending += size;
            continue;
        }
        seen |= slot != DieAttributes::slot_None ? std::uint64_t{1} << slot : 0;
        std::uint32_t constant = 0;
        if (spec.form == DW_FORM_implicit_const) {
            constant = static_cast<std::uint32_t>(m_constants.size());
            m_constants.push_back(static_cast<std::uint64_t>(spec.constant));
        }
        m_steps.push_back({pending, spec.form, slot, constant});
        pending = 0;
    }
    entry.mayBeStatic = entry.mayBeStatic && !hasList; // it has a location, of the wrong form
    entry.stepCount = static_cast<std::uint32_t>(m_steps.size()) - entry.firstStep;
    entry.tailSize = pending;
}

AbbrevTable const& AbbrevTables::at(std::uint64_t offset, DwarfWalker const& section, FormContext const& context) {
    Key const key{offset, context.addrSize, context.is64, context.version < 3};
    auto const known = m_tables.find(key);
    if (known != m_tables.end()) {
        return *known->second;
    }
    auto table = std::make_unique<AbbrevTable>();
    std::uint64_t const budget = std::max(k_leastBudget, section.size() * k_rereads);
    if (m_bytesRead < budget && offset < section.size()) {
        DwarfWalker walker = section;
        walker.seek(offset);
        m_bytesRead += table->read(walker, context);
    }
    return *m_tables.emplace(key, std::move(table)).first->second;
}

} // namespace ORV_3_30
