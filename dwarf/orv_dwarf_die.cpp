// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Entries by the attributes that are asked for, and their origins, followed link by link (DWARF version 4, 2.2
// and 7.5).
#include "dwarf/orv_dwarf_die.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dwarf_reader.h"

#include <algorithm>
#include <iterator>

namespace ORV_3_30 {

namespace {

struct SlotOfAttribute {
    DieAttributes::Slot slot;
    std::uint32_t attr;
};

/// By attribute, for the search.
constexpr SlotOfAttribute k_slots[] = {
    {DieAttributes::slot_Sibling, DW_AT_sibling},
    {DieAttributes::slot_Location, DW_AT_location},
    {DieAttributes::slot_Name, DW_AT_name},
    {DieAttributes::slot_ByteSize, DW_AT_byte_size},
    {DieAttributes::slot_BitOffset, DW_AT_bit_offset},
    {DieAttributes::slot_BitSize, DW_AT_bit_size},
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
    {DieAttributes::slot_ElementCount, DW_AT_count},
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
    {DieAttributes::slot_DataBitOffset, DW_AT_data_bit_offset},
    {DieAttributes::slot_LinkageName, DW_AT_linkage_name},
    {DieAttributes::slot_StrOffsetsBase, DW_AT_str_offsets_base},
    {DieAttributes::slot_AddrBase, DW_AT_addr_base},
    {DieAttributes::slot_RnglistsBase, DW_AT_rnglists_base},
    {DieAttributes::slot_DwoName, DW_AT_dwo_name},
    {DieAttributes::slot_LoclistsBase, DW_AT_loclists_base},
    {DieAttributes::slot_VendorLinkageName, DW_AT_MIPS_linkage_name},
    {DieAttributes::slot_DwoName, DW_AT_GNU_dwo_name},
    {DieAttributes::slot_DwoId, DW_AT_GNU_dwo_id},
    {DieAttributes::slot_RnglistsBase, DW_AT_GNU_ranges_base}, // the forerunners
    {DieAttributes::slot_AddrBase, DW_AT_GNU_addr_base},
    {DieAttributes::slot_Discriminator, DW_AT_GNU_discriminator},
    {DieAttributes::slot_Options, DW_AT_unit_options},
};

} // namespace

bool isStaticLocation(AttrValue const& location, FormContext const& forms, std::uint64_t& address) {
    bool const isBlock = location.form == DW_FORM_block || location.form == DW_FORM_exprloc;
    if (!isBlock || location.value == 0) {
        return false;
    }
    DwarfWalker operand(location.data + 1, location.value - 1, forms.addrSize);
    bool const isIndexed = location.data[0] == DW_OP_addrx || location.data[0] == DW_OP_GNU_addr_index;
    if (isIndexed && forms.tables != nullptr) {
        address = forms.addressAt(operand.unsignedLeb());
        return true;
    }
    bool const isStatic = location.data[0] == DW_OP_addr;
    address = isStatic ? operand.address() + forms.loadBias : 0;
    return isStatic;
}

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
        if (walker.atEnd() && !isWithoutBytes(step.form)) {
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
        if (step.form == DW_FORM_implicit_const) {
            value.value = table.constant(step);
        }
        m_values[step.slot] = value;
        m_present |= std::uint64_t{1} << step.slot;
    }
    walker.skip(entry.tailSize);
    return true;
}

DieAttributes& DieChain::start(DwarfUnit& unit, std::uint64_t offset, unsigned int mostLinks) {
    m_links[0].place = {&unit, offset};
    m_count = 1;
    m_mostLinks = mostLinks;
    m_isComplete = false;
    m_isCut = false;
    return m_links[0].attributes;
}

bool DieChain::startAtOrigin(DwarfPlace const& origin) {
    m_count = 0;
    m_mostLinks = k_longestOriginChain - 1;
    m_isCut = false;
    m_isComplete = !origin || !readLink(origin);
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
    DwarfPlace const origin = last.place.unit->target(*reference);
    for (unsigned int i = 0; i < m_count; ++i) {
        if (!origin || m_links[i].place == origin) {
            return false;
        }
    }
    m_isComplete = !readLink(origin);
    return !m_isComplete;
}

/// Adds the entry at an offset. Many entries may share an origin that is long, so what it costs is counted.
bool DieChain::readLink(DwarfPlace const& place) {
    DwarfUnit const& unit = *place.unit;
    DwarfWalker walker = unit.unitWalker();
    walker.seek(place.offset);
    std::uint64_t const code = walker.unsignedLeb();
    AbbrevEntry const* const entry = code != 0 ? unit.abbrevs().find(code) : nullptr;
    bool const isFound = code == 0 || ORV_ASSERT(entry != nullptr, "false");
    if (!isFound || entry == nullptr) {
        return false;
    }
    m_isCut = m_isCut || m_search.isSpent();
    if (m_isCut) {
        return false;
    }
    m_tag = m_count == 0 ? entry->tag : m_tag;
    Link& link = m_links[m_count];
    link.place = place;
    link.attributes.read(walker, unit.forms(), unit.abbrevs(), *entry);
    m_search.settle(walker.offset() - place.offset);
    ++m_count;
    return true;
}

bool DieChain::isDeclaration() { return !first().hasPlace() && find(DieAttributes::slot_Inline) == nullptr; }

DieChain::Link* DieChain::findLink(DieAttributes::Slot slot) {
    for (unsigned int i = 0; i < m_count || extend(); ++i) {
        if (m_links[i].attributes.has(slot)) {
            return &m_links[i];
        }
    }
    return nullptr;
}

AttrValue const* DieChain::find(DieAttributes::Slot slot, DwarfUnit*& unit) {
    Link const* const link = findLink(slot);
    unit = link != nullptr ? link->place.unit : unit;
    return link != nullptr ? link->attributes.get(slot) : nullptr;
}

AttrValue const* DieChain::find(DieAttributes::Slot slot) {
    DwarfUnit* unit = nullptr;
    return find(slot, unit);
}

DwarfPlace DieChain::target(DieAttributes::Slot slot) {
    DwarfUnit* unit = nullptr;
    AttrValue const* const reference = find(slot, unit);
    return reference != nullptr ? unit->target(*reference) : DwarfPlace();
}

/// Null for no text, and for an empty one.
static char const* textOf(AttrValue const* value) {
    bool const isText = value != nullptr && (value->form == DW_FORM_string || value->form == DW_FORM_strp) &&
                        value->data != nullptr && *value->data != 0;
    return isText ? reinterpret_cast<char const*>(value->data) : nullptr;
}

char const* DieChain::text(DieAttributes::Slot slot) { return textOf(find(slot)); }

DieChain::Named DieChain::named(DieAttributes::Slot slot) {
    Link const* const link = findLink(slot);
    return link != nullptr ? Named{textOf(link->attributes.get(slot)), link->place} : Named();
}

DieChain::Named DieChain::linkageName() {
    Named const vendors = named(DieAttributes::slot_VendorLinkageName);
    return vendors.place ? vendors : named(DieAttributes::slot_LinkageName);
}

bool AttrBindings::readDie(DwarfUnit& unit, DwarfWalker& walker) {
    std::uint64_t const offset = walker.offset();
    DieAttributes& attributes = m_chain.start(unit, offset);
    attributes.clear();
    std::uint64_t const code = walker.unsignedLeb();
    if (code == 0) {
        return false;
    }
    AbbrevEntry const* const entry = unit.abbrevs().find(code);
    if (!ORV_ASSERT(entry != nullptr, "false")) {
        return false;
    }
    m_offset = offset;
    m_tag = entry->tag;
    m_hasChildren = entry->hasChildren;
    return attributes.read(walker, unit.forms(), unit.abbrevs(), *entry);
}

} // namespace ORV_3_30
