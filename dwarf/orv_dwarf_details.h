// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A unit as clients see it: what its entry tells, its options with those of its parts, and its source files.
#pragma once

#include "dwarf/orv_dwarf_unit.h"
#include "orv/orv_source.h"
#include "symbols/orv_accepted_ranges.h"

#include <atomic>
#include <forward_list>
#include <string>
#include <vector>

namespace ORV_3_30 {

class DWARFDebugInfoLoader;
class DWARFLineResolver;

/// Source files by the numbers that a unit's file table gives them.
class UnitFileIds {
public:
    void setFirst(unsigned int number) { m_first = number; }
    void add(int id) { m_ids.push_back(id); }
    void clear() { m_ids.clear(); }
    /// -1 for a number that no file has, and for a file without a name.
    int idOf(std::uint64_t number) const {
        return number >= m_first && number - m_first < m_ids.size() ? m_ids[number - m_first] : -1;
    }
    std::vector<int> const& all() const { return m_ids; } ///< In the table's order.

private:
    unsigned int m_first = 1;
    std::vector<int> m_ids;
};

/// Lives as long as its loader. The files and the state of the line program are guarded by the line resolver's run
/// lock.
class DWARFCompilationUnit final : public ICompUnitDetails, public SymMgrObjectImpl {
public:
    /// Neither is counted: the loader owns both.
    DWARFCompilationUnit(DWARFDebugInfoLoader& loader, DwarfUnit& unit) : m_loader(loader), m_unit(unit) {}

    unsigned long long id() override { return m_unit.header().offset; }
    ISourceFile* mainSourceFile() override;
    ISourceFile* sourceFileByName(char const* name) override;
    unsigned int reserved4() override { return 0; }
    char const* compilationDirectory() override {
        return *m_unit.compDir() != '\0' ? m_unit.compDir() : entries().compDir();
    }
    char const* compileOptions() override {
        char const* const merged = m_compileOptions;
        return merged != nullptr ? merged : entries().options();
    }
    char const* optReportFile() override {
        std::string const& file = entries().compiler().optReportFile;
        return file.empty() ? nullptr : file.c_str();
    }
    char const* compilerName() override;
    unsigned int compilerMajorVersion() override { return entries().compiler().major; }
    unsigned int compilerMinorVersion() override { return entries().compiler().minor; }
    unsigned int language() override { return entries().language(); }
    void* reserved12() override { return nullptr; }

    DWARFDebugInfoLoader& loader() const { return m_loader; }
    /// The unit that has the entries: of a skeleton its split unit, once it is found.
    DwarfUnit& entries() const { return m_unit.split() != nullptr ? *m_unit.split() : m_unit; }

    /// Takes in the options that a part of the unit was compiled with.
    void mergeOptions(char const* newText);
    /// Runs the line program, once; later calls give the first one's status. One that found no memory leaves nothing,
    /// and is run again. Without a filter all its rows are taken. To be called under the resolver's run lock.
    status_t runLineProgram(RangeFilter* filter);
    UnitFileIds const& sourceFileIds() const { return m_sourceFileIds; }

private:
    status_t runLineProgramOnce(DWARFLineResolver& resolver, RangeFilter* filter);

    DWARFDebugInfoLoader& m_loader;
    DwarfUnit& m_unit; ///< That of the file itself, which has the line program.
    std::atomic<char const*> m_compileOptions{nullptr};
    std::forward_list<std::string> m_mergedOptions; ///< With those of parts. Earlier texts stay, for who holds them.
    ISourceFile* m_mainFile = nullptr;
    UnitFileIds m_sourceFileIds;
    status_t m_lineStatus = status_NotInitialized;
};

} // namespace ORV_3_30
