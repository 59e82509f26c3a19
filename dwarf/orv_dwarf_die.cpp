#include "dwarf/orv_dwarf_die.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_unit.h"

#include <algorithm>

namespace ORV_3_30 {

std::uint8_t DieAttributes::slotOf(std::uint32_t attr) {
    switch (attr) {
    case DW_AT_sibling: return slot_Sibling;
    case DW_AT_location: return slot_Location;
    case DW_AT_name: return slot_Name;
    case DW_AT_byte_size: return slot_ByteSize;
    case DW_AT_stmt_list: return slot_StmtList;
    case DW_AT_low_pc: return slot_LowPc;
    case DW_AT_high_pc: return slot_HighPc;
    case DW_AT_language: return slot_Language;
    case DW_AT_comp_dir: return slot_CompDir;
    case DW_AT_inline: return slot_Inline;
    case DW_AT_lower_bound: return slot_LowerBound;
    case DW_AT_producer: return slot_Producer;
    case DW_AT_upper_bound: return slot_UpperBound;
    case DW_AT_abstract_origin: return slot_AbstractOrigin;
    case DW_AT_decl_column: return slot_DeclColumn;
    case DW_AT_decl_file: return slot_DeclFile;
    case DW_AT_decl_line: return slot_DeclLine;
    case DW_AT_external: return slot_External;
    case DW_AT_specification: return slot_Specification;
    case DW_AT_type: return slot_Type;
    case DW_AT_entry_pc: return slot_EntryPc;
    case DW_AT_ranges: return slot_Ranges;
    case DW_AT_linkage_name: return slot_LinkageName;
    case DW_AT_MIPS_linkage_name: return slot_VendorLinkageName;
    case DW_AT_GNU_discriminator: return slot_Discriminator;
    case DW_AT_unit_options: return slot_Options;
    default: return slot_None;
    }
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
            return true; // the rest of the entry is not there
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

DieAttributes& DieChain::start(DWARFCompilationUnit& unit, std::uint64_t offset) {
    m_links[0].unit = &unit;
    m_links[0].offset = offset;
    m_count = 1;
    m_isComplete = false;
    return m_links[0].attributes;
}

/// Reads the origin of the last link; false if it has none that is not in the chain.
bool DieChain::extend() {
    if (m_isComplete || m_count == m_links.size()) {
        return false;
    }
    Link const& last = m_links[m_count - 1];
    AttrValue const* reference = last.attributes.get(DieAttributes::slot_AbstractOrigin);
    if (reference == nullptr) {
        reference = last.attributes.get(DieAttributes::slot_Specification);
    }
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
    DwarfWalker walker = unit->sectionWalker();
    walker.seek(offset);
    AbbrevEntry const* const entry = unit->abbrevs().find(walker.unsignedLeb());
    if (entry == nullptr) {
        return false;
    }
    Link& link = m_links[m_count];
    link.unit = unit;
    link.offset = offset;
    link.attributes.read(walker, unit->forms(), unit->abbrevs(), *entry);
    ++m_count;
    m_isComplete = false;
    return true;
}

AttrValue const* DieChain::find(DieAttributes::Slot slot, DWARFCompilationUnit*& unit) {
    for (unsigned int i = 0; i < m_count || extend(); ++i) {
        if (m_links[i].attributes.has(slot)) {
            unit = m_links[i].unit;
            return m_links[i].attributes.get(slot);
        }
    }
    return nullptr;
}

AttrValue const* DieChain::find(DieAttributes::Slot slot) {
    DWARFCompilationUnit* unit = nullptr;
    return find(slot, unit);
}

char const* DieChain::text(DieAttributes::Slot slot) {
    AttrValue const* const value = find(slot);
    bool const isText = value != nullptr && (value->form == DW_FORM_string || value->form == DW_FORM_strp) &&
                        value->data != nullptr && *value->data != 0;
    return isText ? reinterpret_cast<char const*>(value->data) : nullptr;
}

char const* DieChain::symbolName() {
    for (auto const slot : {DieAttributes::slot_VendorLinkageName, DieAttributes::slot_LinkageName}) {
        if (find(slot) != nullptr) {
            return text(slot);
        }
    }
    return text(DieAttributes::slot_Name);
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
    AbbrevSpec const* const specs = table.specs(*entry);
    std::vector<AttrBinding*> read;
    AttrValue value{};
    bool isComplete = true;
    for (std::uint32_t i = 0; i < entry->specCount && isComplete; ++i) {
        isComplete = readForm(walker, m_unit->forms(), specs[i].form, value);
        if (isComplete) {
            m_pool.push_back({nullptr, specs[i].attr, value.form, value.value, value.data});
            read.push_back(&m_pool.back());
        }
        if (walker.atEnd()) {
            break; // the rest of the entry is not there
        }
    }
    // In ascending order the list takes them without a walk; of two with one code the first stands.
    std::stable_sort(read.begin(), read.end(),
                     [](AttrBinding const* a, AttrBinding const* b) { return a->attr < b->attr; });
    for (AttrBinding* const binding : read) {
        insertItem(binding);
    }
    return isComplete;
}

AttrBinding const* AttrBindings::attribute(unsigned long long attr, bool localOnly) {
    AttrBindings* entry = this;
    for (unsigned int i = 0; entry != nullptr && i < k_longestOriginChain; ++i) {
        if (AttrBinding const* const binding = entry->find(attr)) {
            return binding;
        }
        entry = localOnly ? nullptr : entry->resolveOrigin();
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
    SymMgrObjectPtr<AttrBindings> const origin(new AttrBindings(unit, nullptr));
    DwarfWalker walker = unit->sectionWalker();
    walker.seek(reference->value);
    origin->readDie(walker);
    m_origin = origin;
    return m_origin.get();
}

} // namespace ORV_3_30
