// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The sections and units of one file with DWARF debug information, versions 2 to 4, with the modern reading 5 too.
///
///     DwarfReader reader(helper, module, loadBias);
///     if (reader.holdInfo() && reader.readUnits() == status_Ok) {
///         for (auto const& unit : reader.units()) {
///             DwarfWalker walker = unit->unitWalker();           // entries, from unit->header().firstDie
///         }
///     }
///
/// What it and its units are made of (walker, forms, abbreviations, entries, origins, types, ranges, line programs,
/// inline trees) knows bytes alone: what is made of them is the loader's.
#pragma once

#include "core/orv_once.h"
#include "dwarf/orv_dwarf_budgets.h"
#include "dwarf/orv_dwarf_frame.h"
#include "dwarf/orv_dwarf_names.h"
#include "dwarf/orv_dwarf_origins.h"
#include "dwarf/orv_dwarf_unit.h"
#include "format/orv_ffl.h"
#include "orv/orv_reading.h"

#include <memory>
#include <mutex>
#include <vector>

namespace ORV_3_30 {

/// Units and sections stay as long as the reader. Written in the first load, but for .debug_loc, and read after it; the
/// budgets and the origins are for any thread.
class DwarfReader {
public:
    /// Neither is counted: their owner is the reader's too. loadBias: what is added to an address of the file to get
    /// one of the module.
    DwarfReader(IFileFormatHelper& helper, IFileFormatLoader* module, std::uint64_t loadBias, reading_t reading)
        : m_helper(helper), m_module(module), m_loadBias(loadBias), m_reading(reading) {}
    /// Of split units: their sections are those of helper, but addresses, ranges before version 5, and budgets are the
    /// main file's, which must stay.
    DwarfReader(IFileFormatHelper& helper, DwarfReader& main)
        : m_helper(helper), m_module(main.m_module), m_loadBias(main.m_loadBias), m_reading(main.m_reading),
          m_main(&main), m_origins(OriginTable::k_fewShelves) {}
    reading_t reading() const { return m_reading; }

    /// Reads .debug_info. False if there is none, or nothing in it.
    bool holdInfo();
    /// True if there is one that can't be taken out of its compression.
    bool isInfoStillPacked() const { return m_debugInfo.data && m_debugInfo.data->isStillPacked(); }
    /// Reads the other sections and the headers of all units (version 4, 7.5.1.1). Those in front of a bad one stay.
    status_t readUnits();
    /// The same for split units, each of which joins the skeleton that skeletonOf(id) gives; null: it is left out.
    template <typename SkeletonOf> void readSplitUnits(SkeletonOf const& skeletonOf);

    using Units = std::vector<std::unique_ptr<DwarfUnit>>;
    Units const& units() const { return m_units; } ///< By offset.
    /// The unit that holds an offset in .debug_info; null if none does.
    DwarfUnit* findUnitByOffset(std::uint64_t offset) const;
    /// The same; the unit that asks is looked at first.
    DwarfUnit* findUnitByOffset(DwarfUnit& asking, std::uint64_t offset) const {
        return asking.holds(offset) ? &asking : findUnitByOffset(offset);
    }

    /// Takes the file that this one's was split from in part, and reads its sections and the headers of its units. It
    /// has none of its own: what it refers to stands in it. Once, ahead of all questions that go by references and
    /// texts.
    status_t holdSupplement(SymMgrObjectPtr<IFileFormatHelper> const& file);
    /// The reader of that file; null without one. Its budgets are its own, by its sections.
    DwarfReader* supplement() const { return m_supplement.get(); }
    /// The entry that a reference in a unit leads to: in the unit, in another one or in the supplementary file.
    DwarfPlace target(DwarfUnit& asking, AttrValue const& reference) const {
        if (reference.form == DW_FORM_GNU_ref_alt && isModern()) {
            return m_supplement ? DwarfPlace{m_supplement->findUnitByOffset(reference.value), reference.value}
                                : DwarfPlace();
        }
        return {findUnitByOffset(asking, reference.value), reference.value};
    }

    DwarfWalker infoWalker(unsigned int addrSize) const { return walkerOf(m_debugInfo, addrSize); }
    bool hasDebugLine() const { return static_cast<bool>(m_debugLine.data); }
    bool hasLineBytes() const { return m_debugLine.bytes != nullptr; }
    DwarfWalker lineWalker(unsigned int addrSize) const { return walkerOf(m_debugLine, addrSize); }
    /// Over the range lists of units of a version.
    DwarfWalker rangesWalker(unsigned int version, unsigned int addrSize) const {
        return version < 5 ? walkerOf(m_debugRanges, addrSize) : walkerOf(m_rangeLists, addrSize);
    }
    /// True if there is code or data at address 0 of the file.
    bool startsAtZero() const { return m_main != nullptr ? m_main->m_startsAtZero : m_startsAtZero; }
    DwarfNames& names() { return m_names; }
    bool isModern() const { return m_reading == reading_Modern; }
    /// Over the location lists of units of a version. Those of .debug_loc are read when they are first needed. Under
    /// the load lock.
    DwarfWalker locationsWalker(unsigned int version, unsigned int addrSize);
    /// Where frames are, by the main file and its module. Made when it is first asked for, under no lock that others
    /// wait for; once units are there.
    CallFrames const& callFrames() {
        DwarfReader& main = m_main != nullptr ? *m_main : *this;
        return main.m_callFrames.get(main.m_callFramesLock, [&main] { return main.makeCallFrames(); });
    }
    /// Null as long as nobody has asked for them.
    CallFrames const* madeCallFrames() const { return (m_main != nullptr ? m_main : this)->m_callFrames.made(); }
    arch_t architecture() const { return m_module != nullptr ? m_module->architecture() : arch_Unknown; }
    bool isInSegment(unsigned long long address) const {
        return m_module != nullptr && m_module->segmentByAddress(address) != nullptr;
    }

    /// Where a load begins.
    void refillBudgets() {
        m_budgets.refill();
        if (m_supplement) {
            m_supplement->m_budgets.refill();
        }
    }
    DwarfBudgets& budgets() { return m_main != nullptr ? m_main->m_budgets : m_budgets; }
    std::uint64_t infoSize() const { return m_debugInfo.size; }
    std::uint64_t abbrevSize() const { return m_debugAbbrev.size; }
    OriginTable& origins() { return m_origins; }

private:
    /// A section in memory, as long as the reader lives.
    struct HeldSection {
        SymMgrObjectPtr<ISectionData> data;
        unsigned char const* bytes = nullptr;
        std::uint64_t size = 0;
    };
    static DwarfWalker walkerOf(HeldSection const& section, unsigned int addrSize) {
        return {section.bytes, section.size, addrSize};
    }
    HeldSection holdSection(unsigned int role, bool isRelocated);
    void holdSections();
    status_t readUnit(DwarfWalker& walker);
    void holdTables();
    std::unique_ptr<CallFrames> makeCallFrames();
    void addHeldFrames(CallFrames& frames, unsigned int role, FrameSection section);
    struct UnitKind {
        unsigned int type = DW_UT_compile;
        std::uint64_t id = 0;
    };
    status_t readHeader(DwarfWalker& walker, FormContext& forms, std::uint64_t& abbrevOffset, UnitKind& kind);
    static void readKindFields(DwarfWalker& walker, FormContext const& forms, UnitKind& kind);

    IFileFormatHelper& m_helper;
    IFileFormatLoader* m_module;
    std::uint64_t m_loadBias;
    reading_t m_reading;
    DwarfReader* m_main = nullptr; ///< Null for the main file.
    HeldSection m_debugInfo;
    HeldSection m_debugAbbrev;
    HeldSection m_debugStr;
    HeldSection m_debugLine;
    HeldSection m_debugRanges;
    HeldSection m_debugLoc;
    HeldSection m_lineStrings;
    HeldSection m_stringOffsets;
    HeldSection m_addresses;
    HeldSection m_rangeLists;
    HeldSection m_locationLists;
    DwarfTables m_tables;
    bool m_hasReadLocations = false;
    bool m_startsAtZero = false;
    DwarfBudgets m_budgets;
    AbbrevTables m_abbrevTables;
    Units m_units;
    OriginTable m_origins;
    DwarfNames m_names;
    SymMgrObjectPtr<IFileFormatHelper> m_supplementFile; ///< What m_supplement reads.
    std::unique_ptr<DwarfReader> m_supplement;
    std::mutex m_callFramesLock; ///< Only who asks for them waits for it.
    Once<CallFrames> m_callFrames;
};

template <typename SkeletonOf> void DwarfReader::readSplitUnits(SkeletonOf const& skeletonOf) {
    readUnits(); // those in front of a bad one stay
    Units joined;
    for (auto& unit : m_units) {
        if (DwarfUnit* const skeleton = skeletonOf(unit->splitId())) {
            unit->joinSkeleton(*skeleton);
            joined.push_back(std::move(unit));
        }
    }
    m_units = std::move(joined);
}

} // namespace ORV_3_30
