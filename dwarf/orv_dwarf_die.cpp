// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Entries by the attributes that are asked for, and their origins, followed link by link (DWARF version 4, 2.2
// and 7.5).
#include "dwarf/orv_dwarf_die.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_unit.h"

#include <algorithm>
#include <iterator>

namespace ORV_3_30 {

namespace {

struct SlotOfAttribute {
    DieAttributes::Slot slot;
    std::uint32_t attr;
};

/// By attribute, so that bindings come in order.
constexpr SlotOfAttribute k_slots[] = {
    {DieAttributes::slot_Sibling, DW_AT_sibling},
    {DieAttributes::slot_Location, DW_AT_location},
    {DieAttributes::slot_Name, DW_AT_name},
    {DieAttributes::slot_ByteSize, DW_AT_byte_size},
    {DieAttributes::slot_StmtList, DW_AT_stmt_list},
    {DieAttributes::slot_LowPc, DW_AT_low_pc},
    {DieAttributes::slot_HighPc, DW_AT_high_pc},
    {DieAttributes::slot_Language, DW_AT_language},
    {DieAttributes::slot_CompDir, DW_AT_comp_dir},
    {DieAttributes::slot_Inline, DW_AT_inline},
    {DieAttributes::slot_LowerBound, DW_AT_lower_bound},
    {DieAttributes::slot_Producer, DW_AT_producer},
    {DieAttributes::slot_UpperBound, DW_AT_upper_bound},
    {DieAttributes::slot_AbstractOrigin, DW_AT_abstract_origin},
    {DieAttributes::slot_MemberLocation, DW_AT_data_member_location},
    {DieAttributes::slot_DeclColumn, DW_AT_decl_column},
    {DieAttributes::slot_DeclFile, DW_AT_decl_file},
    {DieAttributes::slot_DeclLine, DW_AT_decl_line},
    {DieAttributes::slot_External, DW_AT_external},
    {DieAttributes::slot_FrameBase, DW_AT_frame_base},
    {DieAttributes::slot_Specification, DW_AT_specification},
    {DieAttributes::slot_Type, DW_AT_type},
    {DieAttributes::slot_EntryPc, DW_AT_entry_pc},
    {DieAttributes::slot_Ranges, DW_AT_ranges},
    {DieAttributes::slot_CallColumn, DW_AT_call_column},
    {DieAttributes::slot_CallFile, DW_AT_call_file},
    {DieAttributes::slot_CallLine, DW_AT_call_line},
    {DieAttributes::slot_LinkageName, DW_AT_linkage_name},
    {DieAttributes::slot_VendorLinkageName, DW_AT_MIPS_linkage_name},
    {DieAttributes::slot_Discriminator, DW_AT_GNU_discriminator},
    {DieAttributes::slot_Options, DW_AT_unit_options},
};

} // namespace

std::uint8_t DieAttributes::slotOf(std::uint32_t attr) {
    auto const* const found = std::lower_bound(std::begin(k_slots), std::end(k_slots), attr,
                                               [](SlotOfAttribute const& s, std::uint32_t a) { return s.attr < a; });
    return found != std::end(k_slots) && found->attr == attr ? found->slot : slot_None;
}

bool DieAttributes::read(DwarfWalker& walker, FormContext const& context, AbbrevTable const& table,
                         AbbrevEntry const& entry) {
    m_present = 0;
    AttrValue value{};
    AbbrevStep const* const steps = table.steps(entry);
    for (std::uint32_t i = 0; i < entry.stepCount; ++i) {
        AbbrevStep const& step = steps[i];
        walker.skip(step.skipBefore);
        if (walker.atEnd() && step.form != DW_FORM_flag_present) {
            return mayBeMissing(walker, context, step.form); // the rest of the entry is not there
        }
        if (step.slot == slot_None) {
            if (!skipForm(walker, context, step.form)) {
                return false;
            }
            continue;
        }
        if (!readForm(walker, context, step.form, value)) {
            return false;
        }
        m_values[step.slot] = value;
        m_present |= std::uint32_t{1} << step.slot;
    }
    walker.skip(entry.tailSize);
    return true;
}

DieAttributes& DieChain::start(DWARFCompilationUnit& unit, std::uint64_t offset, unsigned int mostLinks) {
    m_links[0].unit = &unit;
    m_links[0].offset = offset;
    m_count = 1;
    m_mostLinks = mostLinks;
    m_isComplete = false;
    m_isCut = false;
    return m_links[0].attributes;
}

bool DieChain::startAtOrigin(DWARFCompilationUnit& asking, std::uint64_t offset) {
    start(asking, offset, k_longestOriginChain - 1);
    m_count = 0;
    DWARFCompilationUnit* const unit = asking.holds(offset) ? &asking : asking.loader()->findUnitByOffset(offset);
    m_isComplete = unit == nullptr || !readLink(*unit, offset);
    return !m_isComplete;
}

/// Reads the origin of the last link; false if it has none that is not in the chain.
bool DieChain::extend() {
    if (m_isComplete || m_count == m_mostLinks) {
        return false;
    }
    Link const& last = m_links[m_count - 1];
    AttrValue const* const reference = last.attributes.origin();
    m_isComplete = true;
    if (reference == nullptr) {
        return false;
    }
    std::uint64_t const offset = reference->value;
    DWARFCompilationUnit* const unit =
        last.unit->holds(offset) ? last.unit : last.unit->loader()->findUnitByOffset(offset);
    for (unsigned int i = 0; i < m_count; ++i) {
        if (unit == nullptr || m_links[i].offset == offset) {
            return false;
        }
    }
    m_isComplete = !readLink(*unit, offset);
    return !m_isComplete;
}

/// Adds the entry at an offset. Many entries may share an origin that is long, so what it costs is counted.
bool DieChain::readLink(DWARFCompilationUnit& unit, std::uint64_t offset) {
    DwarfWalker walker = unit.unitWalker();
    walker.seek(offset);
    AbbrevEntry const* const entry = unit.abbrevs().find(walker.unsignedLeb());
    if (entry == nullptr) {
        return false;
    }
    m_isCut = m_isCut || !unit.loader()->canSearch();
    if (m_isCut) {
        return false;
    }
    Link& link = m_links[m_count];
    link.unit = &unit;
    link.offset = offset;
    link.attributes.read(walker, unit.forms(), unit.abbrevs(), *entry);
    unit.loader()->spendSearchBytes(walker.offset() - offset);
    ++m_count;
    return true;
}

bool DieChain::isDeclaration() { return !first().hasPlace() && find(DieAttributes::slot_Inline) == nullptr; }

AttrValue const* DieChain::findFrom(unsigned int link, DieAttributes::Slot slot, DWARFCompilationUnit*& unit) {
    for (unsigned int i = link; i < m_count || extend(); ++i) {
        if (m_links[i].attributes.has(slot)) {
            unit = m_links[i].unit;
            return m_links[i].attributes.get(slot);
        }
    }
    return nullptr;
}

AttrValue const* DieChain::find(DieAttributes::Slot slot, DWARFCompilationUnit*& unit) {
    return findFrom(0, slot, unit);
}

AttrValue const* DieChain::find(DieAttributes::Slot slot) {
    DWARFCompilationUnit* unit = nullptr;
    return find(slot, unit);
}

namespace {

char const* textOf(AttrValue const* value) {
    bool const isText = value != nullptr && (value->form == DW_FORM_string || value->form == DW_FORM_strp) &&
                        value->data != nullptr && *value->data != 0;
    return isText ? reinterpret_cast<char const*>(value->data) : nullptr;
}

} // namespace

char const* DieChain::text(DieAttributes::Slot slot) { return textOf(find(slot)); }

char const* DieChain::symbolName() { return nameFrom(0); }

char const* DieChain::nameFrom(unsigned int link) {
    DWARFCompilationUnit* unit = nullptr;
    for (auto const slot : {DieAttributes::slot_VendorLinkageName, DieAttributes::slot_LinkageName}) {
        if (AttrValue const* const name = findFrom(link, slot, unit)) {
            return textOf(name);
        }
    }
    return textOf(findFrom(link, DieAttributes::slot_Name, unit));
}

bool AttrBindings::readDie(DwarfWalker& walker) {
    std::uint64_t const offset = walker.offset();
    std::uint64_t const code = walker.unsignedLeb();
    if (code == 0) {
        return false;
    }
    AbbrevTable const& table = m_unit->abbrevs();
    AbbrevEntry const* const entry = table.find(code);
    if (!ORV_ASSERT(entry != nullptr, "false")) {
        return false;
    }
    m_offset = offset;
    m_tag = entry->tag;
    m_hasChildren = entry->hasChildren;
    DieAttributes attributes;
    bool const isComplete = attributes.read(walker, m_unit->forms(), table, *entry);
    m_pool.reserve(attributes.count()); // bindings stay where they are
    for (SlotOfAttribute const& known : k_slots) {
        if (AttrValue const* const value = attributes.get(known.slot)) {
            m_pool.push_back({nullptr, known.attr, value->form, value->value, value->data});
            insertItem(&m_pool.back());
        }
    }
    return isComplete;
}

AttrBinding const* AttrBindings::attribute(unsigned long long attr, bool localOnly) {
    AttrBindings const* const holder = localOnly ? this : holderOf(attr);
    return holder != nullptr ? holder->find(attr) : nullptr;
}

AttrBindings* AttrBindings::holderOf(unsigned long long attr) {
    AttrBindings* entry = this;
    for (unsigned int i = 0; entry != nullptr && i < k_longestOriginChain; ++i) {
        if (entry->find(attr) != nullptr) {
            return entry;
        }
        entry = entry->resolveOrigin();
    }
    return nullptr;
}

AttrBindings* AttrBindings::resolveOrigin() {
    if (m_origin) {
        return m_origin.get();
    }
    AttrBinding const* reference = find(DW_AT_abstract_origin);
    if (reference == nullptr) {
        reference = find(DW_AT_specification);
    }
    if (reference == nullptr || reference->value == m_offset) {
        return nullptr;
    }
    DWARFDebugInfoLoader* const loader = m_unit->loader();
    if (!ORV_ASSERT(m_unit->holds(reference->value) || loader != nullptr, "loader != 0L")) {
        return nullptr;
    }
    DWARFCompilationUnit* const unit =
        m_unit->holds(reference->value) ? m_unit : loader->findUnitByOffset(reference->value);
    if (unit == nullptr) {
        return nullptr;
    }
    DwarfWalker walker = unit->unitWalker();
    walker.seek(reference->value);
    m_origin = new AttrBindings(unit, nullptr);
    m_origin->readDie(walker);
    m_originBytes = walker.offset() - reference->value;
    return m_origin.get();
}

} // namespace ORV_3_30
