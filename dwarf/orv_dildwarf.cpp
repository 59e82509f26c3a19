// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// dil: debug information loader. The one of DWARF, which joins what the readers give to the stores of symbols and
// lines.
#include "dwarf/orv_dildwarf.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dwarf_extents.h"
#include "dwarf/orv_dwarf_scope.h"
#include "dwarf/orv_dwarf_symbols.h"
#include "format/orv_root.h"
#include "symbols/orv_range_record.h"

#include <cstdlib>
#include <cstring>

namespace ORV_3_30 {
namespace {

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

DWARFDebugInfoLoader::DWARFDebugInfoLoader(IFileFormatLoader* loader, std::string symFileName,
                                           IFileFormatHelper* helper, unsigned long long loadBias, reading_t reading,
                                           std::unique_ptr<ISplitFiles> splitFiles)
    : DebugInfoLoader(loader), m_symFileName(std::move(symFileName)), m_fileFormatHelper(helper),
      m_reader(*helper, loader, loadBias, reading), m_splits(m_reader, std::move(splitFiles)),
      m_moduleNames(dynamic_cast<FileFormatLoader*>(loader)),
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

status_t DWARFDebugInfoLoader::readUnits() {
    status_t const status = m_reader.readUnits();
    if (!m_reader.units().empty() && !m_reader.hasLineBytes()) {
        m_lineStatus = status_NoDebugInfo;
    }
    openSupplement();
    m_views.open(*this);
    return status;
}

/// Whatever it comes to, what stands in the file itself is there. Asked for in a load, not when the loader is made:
/// banks that want no symbols leave the file alone.
void DWARFDebugInfoLoader::openSupplement() {
    SymMgrObjectPtr<IFileFormatHelper> file;
    if (m_reader.isModern() && !m_reader.units().empty()) {
        file = root().openSupplement(m_fileFormatHelper.get(), symFileName(), moduleLoader());
    }
    if (file && failed(m_reader.holdSupplement(file))) {
        ORV_WARN("Cannot read all of .debug_info of the supplementary file of " << symFileName());
    }
}

void DWARFDebugInfoLoader::readDetailsOfPartialUnits() {
    for (DwarfReader* const reader : {&m_reader, m_reader.supplement()}) {
        for (std::size_t i = 0; reader != nullptr && i < reader->units().size(); ++i) {
            DwarfUnit& unit = *reader->units()[i];
            if (unit.isPartial()) {
                unit.readDetails(m_search);
            }
        }
    }
}

DWARFCompilationUnit* DWARFDebugInfoLoader::unitById(unsigned long long offset) {
    if (!m_hasUnits.load(std::memory_order_acquire)) {
        return nullptr;
    }
    DwarfUnit* const unit = m_reader.findUnitByOffset(offset);
    bool const isThere = unit != nullptr && unit->header().offset == offset && !unit->isPartial();
    return isThere ? &viewOf(*unit) : nullptr;
}

// --- Symbols

status_t DWARFDebugInfoLoader::loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask,
                                           ISrcLineResolver* /*resolver*/) {
    if (failed(m_status)) {
        return m_status;
    }
    if (!m_reader.holdInfo()) {
        m_status = m_reader.isInfoStillPacked() ? status_BadFileFormat : status_NoDebugInfo;
        ORV_WARN("Cannot read .debug_info section ");
        return m_status;
    }
    if (m_views.empty()) {
        m_status = readUnits();
        if (failed(m_status)) {
            m_hasUnits.store(true, std::memory_order_release); // those in front of the bad one stay
            return m_status;
        }
    }
    m_reader.refillBudgets();
    refillSearch();
    readDetailsOfPartialUnits();
    walkUnits(table, filter, m_symbolsEnabled ? mask : 0);
    m_hasUnits.store(true, std::memory_order_release);
    m_status = status_Ok;
    return status_Ok;
}

void DWARFDebugInfoLoader::walkUnits(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask) {
    DieTreeWalk walk(*this, {table, filter, table != nullptr ? table->scope() : nullptr});
    std::vector<bool> needed; // empty: all
    bool const areSplit = m_reader.isModern() && m_splits.readSkeletons(m_search);
    // What units tell of themselves is where their code is, not their data.
    if (areSplit && filter != nullptr && !filter->requested().empty() && (mask & symbol_kind_Data) == 0) {
        needed = unitsNeeded(m_reader, filter->requested());
    }
    for (auto const& unit : m_reader.units()) {
        // A partial unit has no code. The entries of others refer to what stands in it.
        bool const hasEntries =
            !unit->isPartial() && unit->header().firstDie < unit->header().offset + unit->header().length;
        DwarfUnit* const entries = hasEntries && areSplit ? entriesOf(*unit, needed) : unit.get();
        if (hasEntries && entries != nullptr) {
            walk.walkUnit(*entries, mask);
        }
    }
}

DwarfUnit* DWARFDebugInfoLoader::entriesOf(DwarfUnit& unit, std::vector<bool> const& needed) {
    if (unit.splitLink().name == nullptr) {
        return &unit;
    }
    if (!needed.empty() && !needed[unit.header().index]) {
        return nullptr;
    }
    std::uint64_t const before = m_reader.budgets().searchBytes();
    DwarfUnit* const split = m_splits.find(unit, m_search);
    m_search.giveBack(m_reader.budgets().searchBytes() - before);
    return split != nullptr ? split : &unit; // which may tell of inlined calls
}

Scope* DWARFDebugInfoLoader::makeScope(RangeRecord const& record, Scope* parent) {
    return DWARFScope::make(*this, record, parent);
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
    return NameBudget::isUsual(name) || (!m_search.isSpent() && m_search.settle(std::strlen(name)));
}

char const* DWARFDebugInfoLoader::keepShortened(char const* name, std::size_t size) {
    auto const found = m_shortened.find(name);
    if (found != m_shortened.end()) {
        return found->second.c_str();
    }
    return m_reader.budgets().textBytes.spend(size)
               ? m_shortened.emplace(name, std::string(name, size - 1)).first->second.c_str()
               : name;
}

} // namespace ORV_3_30
