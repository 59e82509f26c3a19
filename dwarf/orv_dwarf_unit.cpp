// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// What a unit's own entry tells (DWARF version 4, 3.1.1), and the way past entries.
#include "dwarf/orv_dwarf_unit.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dwarf_reader.h"

#include <cstring>

namespace ORV_3_30 {
namespace {

/// What stands behind this in a producer's text is not looked at.
constexpr std::size_t k_longestProducer = std::size_t{1} << 16;
constexpr unsigned int k_firstLater = 5; ///< The version whose files count from 0, and that has bases.

} // namespace

DwarfWalker DwarfUnit::sectionWalker() const { return m_reader.infoWalker(m_forms.addrSize); }

DwarfWalker DwarfUnit::unitWalker() const {
    DwarfWalker walker = sectionWalker();
    walker.limit(m_header.offset + m_header.length);
    return walker;
}

bool DwarfUnit::readEntry(std::uint64_t offset, DieAttributes& out) const {
    DwarfWalker walker = unitWalker();
    walker.seek(offset);
    AbbrevEntry const* const entry = m_abbrevs.find(walker.unsignedLeb());
    return entry != nullptr && out.read(walker, m_forms, m_abbrevs, *entry);
}

namespace {

/// Languages that later versions of the format have added.
DwarfUnit::language_t laterLanguageOf(std::uint64_t code) {
    switch (code) {
    case DW_LANG_C_plus_plus_03:
    case DW_LANG_C_plus_plus_11:
    case DW_LANG_C_plus_plus_14:
    case DW_LANG_C_plus_plus_17:
    case DW_LANG_C_plus_plus_20: return DwarfUnit::language_Cpp;
    case DW_LANG_Fortran03:
    case DW_LANG_Fortran08:
    case DW_LANG_Fortran18: return DwarfUnit::language_Fortran;
    case DW_LANG_Ada95:
    case DW_LANG_Ada2005:
    case DW_LANG_Ada2012: return DwarfUnit::language_Ada;
    default: return DwarfUnit::language_C;
    }
}

bool isC(std::uint64_t code) {
    switch (code) {
    case DW_LANG_C89:
    case DW_LANG_C:
    case DW_LANG_C99:
    case DW_LANG_C11:
    case DW_LANG_C17: return true;
    default: return false;
    }
}

} // namespace

std::uint64_t DwarfUnit::fileNumber(AttrValue const* value) const {
    return value != nullptr && (value->value != 0 || m_forms.version >= k_firstLater) ? value->value : k_noFile;
}

bool DwarfUnit::qualifiesNames() const { return m_reader.isModern() && !m_isC; }

bool DwarfUnit::isDropped(std::uint64_t address) const {
    bool const isNowhere = m_forms.isTombstone(address) || (address == m_forms.loadBias && !m_reader.startsAtZero());
    return m_reader.isModern() && isNowhere;
}
void DwarfUnit::readKind() {
    DwarfWalker walker = unitWalker();
    walker.seek(m_header.firstDie);
    AbbrevEntry const* const entry = m_abbrevs.find(walker.unsignedLeb());
    m_isPartial = entry != nullptr && entry->tag == DW_TAG_partial_unit;
}

DwarfPlace DwarfUnit::target(AttrValue const& reference) { return m_reader.target(*this, reference); }

void DwarfUnit::readBases() {
    if (m_forms.version < k_firstLater) {
        return;
    }
    DieAttributes root;
    root.clear();
    readEntry(m_header.firstDie, root);
    // Without a word of the unit's they are those of the first part, behind its header.
    unsigned int const header = m_forms.is64 ? 16 : 8;
    unsigned int const listHeader = m_forms.is64 ? 20 : 12;
    auto const baseOf = [&](DieAttributes::Slot slot, std::uint64_t usual) {
        return root.has(slot) ? root.number(slot) : usual;
    };
    m_forms.bases = {baseOf(DieAttributes::slot_StrOffsetsBase, header), baseOf(DieAttributes::slot_AddrBase, header),
                     baseOf(DieAttributes::slot_RnglistsBase, listHeader),
                     baseOf(DieAttributes::slot_LoclistsBase, listHeader)};
}

/// With the classic reading codes of later versions of the format are not known: their units count as C, on purpose.
DwarfUnit::language_t DwarfUnit::languageOf(std::uint64_t code) const {
    switch (code) {
    case DW_LANG_C_plus_plus: return language_Cpp;
    case DW_LANG_Fortran77:
    case DW_LANG_Fortran90:
    case DW_LANG_Fortran95: return language_Fortran;
    case DW_LANG_Ada83: return language_Ada;
    default: return m_reader.isModern() ? laterLanguageOf(code) : language_C;
    }
}

void DwarfUnit::readDetails(DieChain& entry, Budget& search) {
    auto const textOf = [&](DieAttributes::Slot slot) {
        char const* const text = entry.text(slot);
        return text != nullptr ? text : "";
    };
    AttrValue const* const language = entry.find(DieAttributes::slot_Language);
    m_hasLanguage = language != nullptr;
    m_language = languageOf(language != nullptr ? language->value : std::uint64_t{DW_LANG_C});
    m_isC = language != nullptr && isC(language->value);
    m_producer = textOf(DieAttributes::slot_Producer);
    std::uint64_t const searched = ::strnlen(m_producer, k_longestProducer);
    if (search.spend(searched)) {
        m_compiler = parseProducer(std::string(m_producer, searched).c_str());
    }
    if (!m_reader.budgets().textBytes.spend(m_compiler.optReportFile.size())) {
        m_compiler.optReportFile = std::string(); // its room goes too
    }
    m_compDir = textOf(DieAttributes::slot_CompDir);
    m_name = textOf(DieAttributes::slot_Name);
    m_options = textOf(DieAttributes::slot_Options);
    AttrValue const* base = entry.find(DieAttributes::slot_LowPc);
    if (base == nullptr) {
        base = entry.find(DieAttributes::slot_EntryPc);
    }
    m_baseAddress = base != nullptr ? base->value : m_baseAddress; // a skeleton's goes for its split unit
    if (AttrValue const* const lines = entry.find(DieAttributes::slot_StmtList)) {
        m_hasLineInfo = true;
        m_lineOffset = lines->value;
    }
    if (m_reader.isModern() && m_skeleton == nullptr) {
        readSplitLink(entry);
    }
    m_hasDetails = true;
}

void DwarfUnit::readDetails(Budget& search) {
    DieChain chain(search);
    if (!m_hasDetails && readEntry(m_header.firstDie, chain.start(*this, m_header.firstDie))) {
        readDetails(chain, search);
    }
}

void DwarfUnit::readOwnDetails(Budget& search) {
    if (m_hasDetails) {
        return;
    }
    DieChain chain(search);
    DieAttributes& own = chain.start(*this, m_header.firstDie);
    own.clear();
    readEntry(m_header.firstDie, own);
    readDetails(chain, search);
}

void DwarfUnit::readSplitLink(DieChain& entry) {
    bool const isLater = m_forms.version >= k_firstLater;
    char const* const name = entry.text(DieAttributes::slot_DwoName);
    if (name == nullptr || (isLater && m_header.type != DW_UT_skeleton)) {
        return;
    }
    auto const numberOf = [&](DieAttributes::Slot slot) {
        AttrValue const* const value = entry.find(slot);
        return value != nullptr ? value->value : 0;
    };
    m_splitLink = {name, isLater ? m_header.id : numberOf(DieAttributes::slot_DwoId)};
    if (!isLater) {
        m_forms.bases.addresses = numberOf(DieAttributes::slot_AddrBase);
        m_forms.bases.rangeLists = numberOf(DieAttributes::slot_RnglistsBase);
    }
}

void DwarfUnit::joinSkeleton(DwarfUnit& skeleton) {
    m_skeleton = &skeleton;
    m_forms.bases.addresses = skeleton.forms().bases.addresses;
    m_baseAddress = skeleton.baseAddress();
    if (m_forms.version < k_firstLater) {
        m_rangesBase = skeleton.forms().bases.rangeLists; // those of the split unit alone count from it
    }
}

std::uint64_t DwarfUnit::splitId() const {
    if (m_forms.version >= k_firstLater) {
        return m_header.id;
    }
    DieAttributes root;
    root.clear();
    readEntry(m_header.firstDie, root);
    return root.number(DieAttributes::slot_DwoId);
}

// --- Passing over entries

bool DwarfUnit::skipEntry(DwarfWalker& walker, AbbrevEntry const& entry, std::uint64_t& sibling) const {
    sibling = 0;
    bool const wantsSibling = entry.hasChildren != 0 && entry.siblingForm != 0 && trustsSiblings();
    if (entry.skipSize != AbbrevEntry::k_variable) {
        if (wantsSibling) {
            DwarfWalker at = walker;
            at.skip(entry.siblingAt);
            AttrValue value{};
            if (readForm(at, m_forms, entry.siblingForm, value)) {
                sibling = value.value;
            }
        }
        walker.skip(entry.skipSize);
        return true;
    }
    AbbrevStep const* const steps = m_abbrevs.steps(entry);
    for (std::uint32_t i = 0; i < entry.stepCount; ++i) {
        walker.skip(steps[i].skipBefore);
        if (walker.atEnd() && !isWithoutBytes(steps[i].form)) {
            return mayBeMissing(walker, m_forms, steps[i].form); // the rest of the entry is not there
        }
        if (wantsSibling && steps[i].slot == DieAttributes::slot_Sibling) {
            AttrValue value{};
            if (!readForm(walker, m_forms, steps[i].form, value)) {
                return false;
            }
            sibling = value.value;
        } else if (!skipForm(walker, m_forms, steps[i].form)) {
            return false;
        }
    }
    walker.skip(entry.tailSize);
    return true;
}

void DwarfUnit::skipChildren(DwarfWalker& walker, std::uint64_t sibling) const {
    // One that leads back would have us walk for ever.
    if (sibling > walker.offset() && trustsSiblings()) {
        walker.seek(sibling);
        return;
    }
    for (std::uint64_t depth = 1; depth != 0;) {
        std::uint64_t const code = walker.unsignedLeb();
        AbbrevEntry const* const entry = code != 0 ? m_abbrevs.find(code) : nullptr;
        if (entry == nullptr) {
            ORV_ASSERT(code == 0, "false");
            --depth;
        } else if (!skipEntry(walker, *entry, sibling)) {
            --depth;
        } else if (entry->hasChildren != 0) {
            if (sibling > walker.offset()) {
                walker.seek(sibling);
            } else {
                ++depth;
            }
        }
    }
}

} // namespace ORV_3_30
