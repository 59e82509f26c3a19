// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The line resolver of DWARF: source files, and the runs of the units' line programs.
#pragma once

#include "dwarf/orv_dwarf_declared_files.h"
#include "lines/orv_dil.h"
#include "lines/orv_sourceline_impl.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

class DWARFCompilationUnit;
class DWARFDebugInfoLoader;

/// The first line question runs the programs of all units under m_runLock; a second thread waits for
/// them. After that nothing changes any more, and no question takes the lock. A question for one
/// unit's files runs that unit's program alone, under the same lock.
class DWARFLineResolver final : public SrcLineResolver {
public:
    DWARFLineResolver(Scope* scope, DWARFDebugInfoLoader* loader) : SrcLineResolver(scope), m_loader(loader) {}
    /// Makes the table. To be called once, before anything else: apart from construction, since a counted
    /// object that can't be finished must go by its count.
    void open();

    unsigned int sourceFileCount() override;
    ISourceFile* sourceFileById(unsigned int id) override;
    ICompUnitDetails* compUnitDetailsById(unsigned long long id) override;
    void lineTable(SymMgrObjectPtr<ILineTable>& out) override { out = m_lineTable.get(); }
    status_t sourceLineIterator(SymMgrObjectPtr<SourceLines>& out, unsigned long long start, unsigned long long end,
                                unsigned long long unit, unsigned int fileId, Scope* scope) override;

    /// The id of a path's file. False for a path that no unit has named so far.
    bool fileIdByName(char const* name, unsigned int& outId, unsigned long long* outCrc);
    /// The id of a path's file, made if need be; -1 for a null or empty path. Under the run lock.
    int addFile(char const* path, unsigned long long modificationTime, unsigned long long length);
    /// The id of a unit's file by its number in the line table; -1 for 0 and for numbers beyond it. For a partial unit
    /// all programs are run first: the files that they name have their ids by then.
    int fileIdOfNumber(unsigned long long number, DWARFCompilationUnit& unit);

    /// A directory as file entries refer to it. The same directory has one number.
    std::uint32_t addDirectory(std::string const& directory);
    /// The same as addFile for directory and name together, without a look at the path if the pair was
    /// seen before. The name must stay where it is as long as the resolver does.
    int addFileIn(std::uint32_t directory, std::string_view name, unsigned long long modificationTime,
                  unsigned long long length);

    /// Runs all programs if that has not been done. The status of the lines as a whole. A null scope
    /// stands for the resolver's own.
    status_t ensureLines(Scope* scope);
    LineTable& table() { return *m_lineTable; }
    ILock* runLock() { return &m_runLock; }
    /// For the next bank on the same loader.
    void moveTo(Scope* scope) { setScope(scope); }

private:
    struct NameInDirectory {
        std::uint32_t directory;
        std::string_view name;
        friend bool operator==(NameInDirectory const& a, NameInDirectory const& b) {
            return a.directory == b.directory && a.name == b.name;
        }
    };
    struct Hash {
        std::size_t operator()(NameInDirectory const& key) const {
            return std::hash<std::string_view>()(key.name) ^ std::size_t{key.directory} * 0x9E3779B97F4A7C15ULL;
        }
    };

    SymMgrObjectPtr<LineTable> flatTable(status_t& status, Scope* scope) override {
        status = ensureLines(scope);
        return status == status_Ok ? m_lineTable : SymMgrObjectPtr<LineTable>();
    }
    status_t runAll(Scope* scope);
    int declaredFileId(unsigned long long number, DwarfUnit const& unit);

    DWARFDebugInfoLoader* m_loader; ///< Not counted: it owns the resolver.
    OrvLock m_runLock;
    SymMgrObjectPtr<LineTable> m_lineTable;
    bool m_isRunning = false;                               ///< Under the run lock.
    std::atomic<bool> m_isComplete{false};                  ///< All programs have been run.
    std::vector<SymMgrObjectPtr<SourceFile>> m_sourceFiles; ///< By id.
    std::map<unsigned long long, unsigned int> m_sourceFileIdByCrc;
    DeclaredFiles m_declaredFiles;
    /// Files that declarations in partial units alone name, with the ids behind those of m_sourceFiles. They come when
    /// all programs have been run, and stay under the run lock.
    std::vector<SymMgrObjectPtr<SourceFile>> m_laterFiles;
    std::map<unsigned long long, unsigned int> m_laterFileIdByCrc;
    std::unordered_map<std::string, std::uint32_t> m_directories;
    std::vector<std::string const*> m_directoryNames;
    std::unordered_map<NameInDirectory, int, Hash> m_knownNames;
};

} // namespace ORV_3_30
