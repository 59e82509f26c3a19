// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Sections, relocated where they need it, and the headers of units in their order (DWARF version 5, 7.5.1).
#include "dwarf/orv_dwarf_reader.h"

#include "format/orv_elf_relocations.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

constexpr unsigned int k_latestVersion = 4; ///< Of the classic reading.
constexpr unsigned int k_versionWithTypes = 5;

} // namespace

DwarfReader::HeldSection DwarfReader::holdSection(unsigned int role, bool isRelocated) {
    HeldSection held;
    m_helper.sectionData(held.data, role);
    if (!held.data) {
        return held;
    }
    unsigned char* const bytes = held.data->data();
    held.bytes = bytes;
    held.size = bytes != nullptr ? held.data->size() : 0;
    if (isRelocated && bytes != nullptr) {
        held.data->relocateOnce([&] {
            SymMgrObjectPtr<RelocationAddends> addends;
            m_helper.relocations(addends, held.data->sectionIndex());
            if (addends) {
                for (RelocationAddends::Entry const& entry : addends->entries()) {
                    addends->apply(bytes, held.size, entry);
                }
            }
        });
    }
    return held;
}

bool DwarfReader::holdInfo() {
    if (m_debugInfo.bytes == nullptr) {
        m_debugInfo = holdSection(section_role_DebugInfo, true);
    }
    return m_debugInfo.size != 0;
}

void DwarfReader::holdSections() {
    m_debugAbbrev = holdSection(section_role_DebugAbbrev, false);
    m_debugStr = holdSection(section_role_DebugStr, false);
    m_debugLine = holdSection(section_role_DebugLine, true);
    m_debugRanges = m_main != nullptr ? m_main->m_debugRanges : holdSection(section_role_DebugRanges, true);
    if (isModern()) {
        holdTables();
    }
    if (m_main != nullptr) { // its texts may be those of many units
        m_main->m_budgets.grow({m_debugInfo.size, 0, 0, m_rangeLists.size});
        return;
    }
    m_budgets.fill({m_debugInfo.size, m_debugStr.size + m_lineStrings.size, m_debugLine.size,
                    m_debugRanges.size + m_rangeLists.size});
}

/// What values of version 5 lead to.
void DwarfReader::holdTables() {
    m_startsAtZero = m_helper.isLoadedAddress(0);
    m_lineStrings = holdSection(section_role_DebugLineStr, false);
    m_stringOffsets = holdSection(section_role_DebugStrOffsets, true);
    m_addresses = m_main != nullptr ? m_main->m_addresses : holdSection(section_role_DebugAddr, true);
    m_rangeLists = holdSection(section_role_DebugRnglists, true);
    m_locationLists = holdSection(section_role_DebugLoclists, true);
    auto const bytesOf = [](HeldSection const& held) { return DwarfBytes{held.bytes, held.size}; };
    m_tables = {bytesOf(m_lineStrings), bytesOf(m_stringOffsets), bytesOf(m_addresses),
                bytesOf(m_rangeLists),  bytesOf(m_locationLists), {}};
}

DwarfWalker DwarfReader::locationsWalker(unsigned int version, unsigned int addrSize) {
    if (version >= k_versionWithTypes) {
        return walkerOf(m_locationLists, addrSize);
    }
    if (!m_hasReadLocations) {
        m_debugLoc = holdSection(section_role_DebugLoc, true);
        m_hasReadLocations = true;
    }
    return walkerOf(m_debugLoc, addrSize);
}

status_t DwarfReader::readUnits() {
    m_units.clear(); // of a load that found no memory
    holdSections();
    DwarfWalker walker = infoWalker(0);
    status_t status = status_Ok;
    while (status == status_Ok && !walker.atEnd()) {
        status = readUnit(walker);
    }
    return status;
}

/// Reads the header of a unit, and moves the walker behind the unit.
status_t DwarfReader::readUnit(DwarfWalker& walker) {
    std::uint64_t const begin = walker.offset();
    FormContext forms;
    std::uint64_t debugInfoForCUSize = 0;
    if (!ORV_ASSERT(walker.getUnsigned4(debugInfoForCUSize) == status_Ok,
                    "walker.getUnsigned4(debugInfoForCUSize) == status_Ok")) {
        return status_BadFileFormat;
    }
    if (debugInfoForCUSize == 0xFFFFFFFF) {
        forms.is64 = true;
        if (!ORV_ASSERT(walker.getUnsigned8(debugInfoForCUSize) == status_Ok,
                        "walker.getUnsigned8(debugInfoForCUSize) == status_Ok")) {
            return status_BadFileFormat;
        }
    }
    std::uint64_t const end = walker.offset() + std::min(debugInfoForCUSize, walker.remaining());
    DwarfWalker rootWalker = walker;
    rootWalker.limit(end);
    std::uint64_t abbrevOffset = 0;
    UnitKind kind;
    status_t const status = readHeader(rootWalker, forms, abbrevOffset, kind);
    if (status != status_Ok) {
        return status;
    }
    forms.unitOffset = begin;
    forms.loadBias = m_loadBias;
    forms.strings = m_debugStr.bytes;
    forms.stringsSize = m_debugStr.size;
    forms.tables = isModern() ? &m_tables : nullptr;
    AbbrevTable const& abbrevs = m_abbrevTables.at(abbrevOffset, walkerOf(m_debugAbbrev, forms.addrSize), forms);
    DwarfUnit::Header const header{m_units.size(), begin, end - begin, rootWalker.offset(), kind.type, kind.id};
    walker.seek(end);
    if (kind.type != DW_UT_type && kind.type != DW_UT_split_type) { // types have no code
        m_units.push_back(std::make_unique<DwarfUnit>(*this, header, forms, abbrevs));
        m_units.back()->readBases();
        if (isModern()) {
            m_units.back()->readKind();
        }
    }
    return status_Ok;
}

/// What stands behind the header of a unit of version 5 that says what it is for.
void DwarfReader::readKindFields(DwarfWalker& walker, FormContext const& forms, UnitKind& kind) {
    constexpr unsigned int k_idSize = 8;
    switch (kind.type) {
    case DW_UT_type:
    case DW_UT_split_type: walker.skip(k_idSize + (forms.is64 ? 8 : 4)); break;
    case DW_UT_skeleton:
    case DW_UT_split_compile: walker.getUnsigned8(kind.id); break;
    default: break;
    }
}

/// What stands behind the length.
status_t DwarfReader::readHeader(DwarfWalker& rootWalker, FormContext& forms, std::uint64_t& abbrevOffset,
                                 UnitKind& kind) {
    if (!ORV_ASSERT(rootWalker.getUnsigned2(forms.version) == status_Ok,
                    "rootWalker.getUnsigned2(version) == status_Ok")) {
        return status_BadFileFormat;
    }
    bool const isKnown = forms.version <= k_latestVersion || (isModern() && forms.version == k_versionWithTypes);
    if (!isKnown && !ORV_ASSERT(forms.version <= k_latestVersion, "version <= 4")) {
        return status_UnsupportedFileVersion;
    }
    bool const hasType = forms.version == k_versionWithTypes;
    if (hasType &&
        (rootWalker.getUnsigned1(kind.type) != status_Ok || rootWalker.getUnsigned1(forms.addrSize) != status_Ok)) {
        return status_BadFileFormat;
    }
    bool const hasOffset = forms.is64 ? ORV_ASSERT(rootWalker.getUnsigned8(abbrevOffset) == status_Ok,
                                                   "rootWalker.getUnsigned8(abbrevOffset) == status_Ok")
                                      : ORV_ASSERT(rootWalker.getUnsigned4(abbrevOffset) == status_Ok,
                                                   "rootWalker.getUnsigned4(abbrevOffset) == status_Ok");
    if (!hasOffset || (!hasType && !ORV_ASSERT(rootWalker.getUnsigned1(forms.addrSize) == status_Ok,
                                               "rootWalker.getUnsigned1(addrSize) == status_Ok"))) {
        return status_BadFileFormat;
    }
    rootWalker.setAddrSize(forms.addrSize);
    readKindFields(rootWalker, forms, kind);
    return status_Ok;
}

status_t DwarfReader::holdSupplement(SymMgrObjectPtr<IFileFormatHelper> const& file) {
    auto fresh = std::make_unique<DwarfReader>(*file, nullptr, 0, m_reading);
    status_t const status = fresh->holdInfo() ? fresh->readUnits() : status_NoDebugInfo;
    if (status == status_NoDebugInfo) {
        fresh->holdSections(); // texts alone may be shared
    }
    for (auto const& unit : fresh->m_units) {
        unit->markPartial();
    }
    m_supplementFile = file;
    m_supplement = std::move(fresh);
    m_tables.supplementStrings = {m_supplement->m_debugStr.bytes, m_supplement->m_debugStr.size};
    return status;
}

DwarfUnit* DwarfReader::findUnitByOffset(std::uint64_t offset) const {
    auto const after = std::upper_bound(m_units.begin(), m_units.end(), offset,
                                        [](std::uint64_t o, auto const& unit) { return o < unit->header().offset; });
    if (after == m_units.begin()) {
        return nullptr;
    }
    DwarfUnit* const unit = std::prev(after)->get();
    return unit->holds(offset) ? unit : nullptr;
}

} // namespace ORV_3_30
