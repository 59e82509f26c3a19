// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// dil: debug information loader. The one of DWARF, which joins what the readers give to the stores of symbols and
// lines. Unit headers: DWARF version 4, 7.5.1.1.
#include "dwarf/orv_dildwarf.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dwarf_scope.h"
#include "dwarf/orv_dwarf_walk.h"
#include "orv/orv_dwarf.h"
#include "symbols/orv_range_record.h"

#include <algorithm>
#include <cstdlib>

namespace ORV_3_30 {
namespace {

/// Units may share a line program, but none needs to be read more often than this.
constexpr std::uint64_t k_lineRereads = 24; // a merge at link time leaves that many units on one program
constexpr std::uint64_t k_lineHeaderRereads = 256;
constexpr std::uint64_t k_leastLocation = 4; ///< Bytes of an entry, and then some.
constexpr std::uint64_t k_leastRangePair = 8;
constexpr std::uint64_t k_rangeRereads = 3; // for what lies in functions, and for what has no list of its own
constexpr std::uint64_t k_leastBudget = std::uint64_t{1} << 16;
/// A few bytes make a variable of a large type.
constexpr std::uint64_t k_leastMembers = std::uint64_t{1} << 19;
constexpr std::uint64_t k_membersMade = 2;
/// Paths and names that are put together, and texts that are searched, against what the sections hold.
constexpr std::uint64_t k_textsMade = 8;
constexpr std::uint64_t k_textsSearched = 64;
constexpr std::uint64_t k_leastTexts = std::uint64_t{1} << 20;

constexpr unsigned int k_latestVersion = 4;

bool areSymbolsEnabled() {
    char const* const skip = std::getenv("ORV_SKIP_DWARF_SYMBOLS");
    return skip == nullptr || *skip == '\0';
}

bool hasSection(IFileFormatHelper& helper, unsigned int role) {
    SymMgrObjectPtr<ISectionData> section;
    helper.sectionData(section, role);
    return static_cast<bool>(section);
}

} // namespace

namespace dwarf_utils {

void calculateHighLowAdresses(AttrBinding const* low, AttrBinding const* high, unsigned long long& outLow,
                              unsigned long long& outHigh) {
    outLow = low != nullptr ? low->value : 0;
    outHigh = outLow;
    if (high == nullptr) {
        return;
    }
    bool const isAddress = high->form == DW_FORM_addr;
    outHigh = isAddress ? high->value : outLow + high->value;
    if (low == nullptr && isAddress) {
        outLow = outHigh;
    }
}

} // namespace dwarf_utils

DWARFDebugInfoLoader::DWARFDebugInfoLoader(IFileFormatLoader* loader, std::string symFileName,
                                           IFileFormatHelper* helper, unsigned long long loadBias)
    : DebugInfoLoader(loader), m_symFileName(std::move(symFileName)), m_fileFormatHelper(helper), m_loadBias(loadBias),
      m_hasDebugInfo(hasSection(*helper, section_role_DebugInfo)), m_symbolsEnabled(areSymbolsEnabled()) {}

ISrcLineResolver* DWARFDebugInfoLoader::srcLineResolver(Scope* scope, ILock* /*lock*/) {
    if (!m_lineResolver) {
        SymMgrObjectPtr<DWARFLineResolver> const fresh(new DWARFLineResolver(scope, this));
        fresh->open();
        m_lineResolver = fresh;
    }
    m_lineResolver->moveTo(scope);
    return m_lineResolver.get();
}

// --- Units

DWARFDebugInfoLoader::HeldSection DWARFDebugInfoLoader::holdSection(unsigned int role, bool isRelocated) {
    HeldSection held;
    m_fileFormatHelper->sectionData(held.data, role);
    if (!held.data) {
        return held;
    }
    unsigned char* const bytes = held.data->data();
    held.bytes = bytes;
    held.size = bytes != nullptr ? held.data->size() : 0;
    // The bytes of some sections are shared: what was added once must not be added again, nor be read half done.
    static auto& relocating = *new OrvLock;
    LockGuard guard(isRelocated ? &relocating : nullptr);
    if (isRelocated && bytes != nullptr && held.data->claimRelocation()) {
        SymMgrObjectPtr<RelocationAddends> addends;
        m_fileFormatHelper->relocations(addends, held.data->sectionIndex());
        if (addends) {
            for (RelocationAddends::Entry const& entry : addends->entries()) {
                addends->apply(bytes, held.size, entry);
            }
        }
    }
    return held;
}

void DWARFDebugInfoLoader::holdSections() {
    m_debugAbbrev = holdSection(section_role_DebugAbbrev, false);
    m_debugStr = holdSection(section_role_DebugStr, false);
    m_debugLine = holdSection(section_role_DebugLine, true);
    m_debugRanges = holdSection(section_role_DebugRanges, true);
    m_lineBytes = std::max(k_leastBudget, m_debugLine.size * k_lineRereads);
    m_lineHeaderBytes = std::max(k_leastBudget, m_debugLine.size * k_lineHeaderRereads);
    m_textBytes = k_leastTexts + textsSize() * k_textsMade;
    m_treeNodes = k_leastBudget + m_debugInfo.size; // an entry takes two bytes, as a rule
    m_mostLocations = std::max(m_mostLocations.load(), k_leastBudget);
}

DwarfWalker DWARFDebugInfoLoader::locationsWalker(unsigned int addrSize) {
    if (!m_hasReadLocations) {
        m_debugLoc = holdSection(section_role_DebugLoc, true);
        m_hasReadLocations = true;
        m_mostLocations = k_leastBudget + m_debugLoc.size / k_leastLocation;
        m_locations = m_mostLocations.load();
    }
    return walkerOf(m_debugLoc, addrSize);
}

/// What one load may spend. A client may have many made, and each is to give the same.
void DWARFDebugInfoLoader::refillBudgets() {
    m_rangePairs = k_leastBudget + m_debugRanges.size / k_leastRangePair * k_rangeRereads;
    m_members = k_leastMembers + m_debugInfo.size * k_membersMade;
    refillScopeBudgets();
}

/// Ranges go on from what the load of the units has left: all that lies in scopes reads them once more, or a few times.
void DWARFDebugInfoLoader::refillScopeBudgets() {
    m_searchBytes = k_leastTexts + textsSize() * k_textsSearched;
    m_locations = m_mostLocations.load();
}

status_t DWARFDebugInfoLoader::scanUnits() {
    holdSections();
    DwarfWalker walker = infoWalker(0);
    status_t status = status_Ok;
    try {
        while (status == status_Ok && !walker.atEnd()) {
            status = scanUnit(walker);
        }
    } catch (...) {
        m_units.clear(); // the next load begins anew
        throw;
    }
    return status;
}

/// Reads the header of a unit, and moves the walker behind the unit (DWARF version 4, 7.5.1.1).
status_t DWARFDebugInfoLoader::scanUnit(DwarfWalker& walker) {
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
    std::uint64_t const size = std::min(debugInfoForCUSize, walker.remaining());
    std::uint64_t const end = walker.offset() + size;
    DwarfWalker rootWalker = walker;
    rootWalker.limit(end);
    if (!ORV_ASSERT(rootWalker.getUnsigned2(forms.version) == status_Ok,
                    "rootWalker.getUnsigned2(version) == status_Ok")) {
        return status_BadFileFormat;
    }
    if (!ORV_ASSERT(forms.version <= k_latestVersion, "version <= 4")) {
        return status_UnsupportedFileVersion;
    }
    std::uint64_t abbrevOffset = 0;
    bool const hasOffset = forms.is64 ? ORV_ASSERT(rootWalker.getUnsigned8(abbrevOffset) == status_Ok,
                                                   "rootWalker.getUnsigned8(abbrevOffset) == status_Ok")
                                      : ORV_ASSERT(rootWalker.getUnsigned4(abbrevOffset) == status_Ok,
                                                   "rootWalker.getUnsigned4(abbrevOffset) == status_Ok");
    if (!hasOffset || !ORV_ASSERT(rootWalker.getUnsigned1(forms.addrSize) == status_Ok,
                                  "rootWalker.getUnsigned1(addrSize) == status_Ok")) {
        return status_BadFileFormat;
    }
    rootWalker.setAddrSize(forms.addrSize);
    if (m_debugLine.bytes == nullptr) {
        m_lineStatus = status_NoDebugInfo;
    }
    forms.unitOffset = begin;
    forms.loadBias = m_loadBias;
    forms.strings = m_debugStr.bytes;
    forms.stringsSize = m_debugStr.size;
    AbbrevTable const& abbrevs = m_abbrevTables.at(abbrevOffset, walkerOf(m_debugAbbrev, forms.addrSize), forms);
    SymMgrObjectPtr<DWARFCompilationUnit> const unit(
        new DWARFCompilationUnit(this, {begin, end - begin, rootWalker.offset()}, forms, abbrevs));
    m_units.push_back(unit);
    walker.seek(end);
    return status_Ok;
}

DWARFCompilationUnit* DWARFDebugInfoLoader::findUnitByOffset(std::uint64_t offset) const {
    auto const after = std::upper_bound(m_units.begin(), m_units.end(), offset,
                                        [](std::uint64_t o, auto const& unit) { return o < unit->header().offset; });
    if (after == m_units.begin()) {
        return nullptr;
    }
    DWARFCompilationUnit* const unit = std::prev(after)->get();
    return unit->holds(offset) ? unit : nullptr;
}

DWARFCompilationUnit* DWARFDebugInfoLoader::unitById(unsigned long long offset) {
    if (!m_hasUnits.load(std::memory_order_acquire)) {
        return nullptr;
    }
    DWARFCompilationUnit* const unit = findUnitByOffset(offset);
    return unit != nullptr && unit->header().offset == offset ? unit : nullptr;
}

// --- Symbols

status_t DWARFDebugInfoLoader::loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask,
                                           ISrcLineResolver* /*resolver*/) {
    if (failed(m_status)) {
        return m_status;
    }
    if (m_debugInfo.bytes == nullptr) {
        m_debugInfo = holdSection(section_role_DebugInfo, true);
    }
    if (m_debugInfo.size == 0) {
        m_status = status_NoDebugInfo;
        ORV_WARN("Cannot read .debug_info section ");
        return m_status;
    }
    if (m_units.empty()) {
        m_status = scanUnits();
        if (failed(m_status)) {
            m_hasUnits.store(true, std::memory_order_release); // those in front of the bad one stay
            return m_status;
        }
    }
    refillBudgets();
    DieTreeWalk walk(*this, {table, filter, table != nullptr ? table->scope() : nullptr});
    for (auto const& unit : m_units) {
        if (unit->header().firstDie < unit->header().offset + unit->header().length) {
            walk.walkUnit(*unit, m_symbolsEnabled ? mask : 0);
        }
    }
    m_hasUnits.store(true, std::memory_order_release);
    m_status = status_Ok;
    return status_Ok;
}

Scope* DWARFDebugInfoLoader::makeScope(RangeRecord const& record, Scope* parent) {
    return DWARFScope::make(*findUnitByOffset(record.token), record, parent);
}

Scope* DWARFDebugInfoLoader::InlineMaker::makeScope(RangeRecord const& record, Scope* parent) {
    return static_cast<DWARFScope*>(parent)->makeBody(record); // only the scopes that bodies lie in add such
}

unsigned int DWARFDebugInfoLoader::mergeRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next) {
    bool const areKnown = mine.name == other.name || (mayRead(mine.name) && mayRead(other.name));
    return areKnown ? dwarfMergeRule(mine, other, next, m_shortNames) : merge_Different;
}

void DWARFDebugInfoLoader::matchKeys(MergeSide const& side, MatchRole role, MatchKeys& out) {
    if (mayRead(side.name)) {
        dwarfMatchKeys(side, role, m_shortNames, out);
    } else {
        out.add(reinterpret_cast<std::uintptr_t>(side.name));
    }
}

bool DWARFDebugInfoLoader::mayRead(char const* name) {
    return NameBudget::isUsual(name) || (canSearch() && spendSearchBytes(std::strlen(name)));
}

char const* DWARFDebugInfoLoader::keepShortened(char const* name, std::size_t size) {
    auto const found = m_shortened.find(name);
    if (found != m_shortened.end()) {
        return found->second.c_str();
    }
    return spendTextBytes(size) ? m_shortened.emplace(name, std::string(name, size - 1)).first->second.c_str() : name;
}

} // namespace ORV_3_30
