// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Source files by the CRC-32 of their paths, and the runs of all units' line programs, once.
#include "dwarf/orv_dwarf_line_resolver.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_details.h"
#include "symbols/orv_globalscope.h"

#include <cstring>
#include <zlib.h>

namespace ORV_3_30 {
namespace {

/// Paths are told apart by this alone: two of the same checksum are the same file.
unsigned long long checksumOf(std::string_view path) {
    return ::crc32_z(0, reinterpret_cast<unsigned char const*>(path.data()), path.size());
}

} // namespace

void DWARFLineResolver::open() { m_lineTable = new LineTable(m_loader->moduleLoader(), this); }

// --- Files

unsigned int DWARFLineResolver::sourceFileCount() {
    LockGuard guard(m_isComplete.load(std::memory_order_acquire) ? nullptr : &m_runLock);
    return static_cast<unsigned int>(m_sourceFiles.size());
}

ISourceFile* DWARFLineResolver::sourceFileById(unsigned int id) {
    bool const isComplete = m_isComplete.load(std::memory_order_acquire);
    LockGuard guard(isComplete && id < m_sourceFiles.size() ? nullptr : &m_runLock);
    if (id < m_sourceFiles.size()) {
        return m_sourceFiles[id].get();
    }
    std::size_t const later = id - m_sourceFiles.size();
    return later < m_laterFiles.size() ? m_laterFiles[later].get() : nullptr;
}

bool DWARFLineResolver::fileIdByName(char const* name, unsigned int& outId, unsigned long long* outCrc) {
    if (!ORV_ASSERT(name != nullptr, "false")) {
        return false;
    }
    unsigned long long const crc = checksumOf(name);
    if (outCrc != nullptr) {
        *outCrc = crc;
    }
    LockGuard guard(m_isComplete.load(std::memory_order_acquire) ? nullptr : &m_runLock);
    auto const found = m_sourceFileIdByCrc.find(crc);
    if (found == m_sourceFileIdByCrc.end()) {
        return false;
    }
    outId = found->second;
    return true;
}

// In each of these what can fail comes before the map knows of it.

int DWARFLineResolver::addFile(char const* path, unsigned long long modificationTime, unsigned long long length) {
    if (path == nullptr || *path == '\0') {
        return -1;
    }
    unsigned long long const checksum = checksumOf(path);
    auto const known = m_sourceFileIdByCrc.find(checksum);
    if (known != m_sourceFileIdByCrc.end()) {
        return static_cast<int>(known->second);
    }
    auto const id = static_cast<unsigned int>(m_sourceFiles.size());
    SymMgrObjectPtr<SourceFile> const file(new SourceFile(this, id, path, modificationTime, length));
    m_sourceFiles.push_back(file);
    try {
        m_sourceFileIdByCrc.emplace(checksum, id);
    } catch (...) {
        m_sourceFiles.pop_back();
        throw;
    }
    return static_cast<int>(id);
}

std::uint32_t DWARFLineResolver::addDirectory(std::string const& directory) {
    if (m_directoryNames.size() == m_directoryNames.capacity()) {
        m_directoryNames.reserve(2 * m_directoryNames.size() + 8);
    }
    auto const [entry, isNew] = m_directories.emplace(directory, static_cast<std::uint32_t>(m_directoryNames.size()));
    if (isNew) {
        m_directoryNames.push_back(&entry->first);
    }
    return entry->second;
}

int DWARFLineResolver::addFileIn(std::uint32_t directory, std::string_view name, unsigned long long modificationTime,
                                 unsigned long long length) {
    NameInDirectory const key{directory, name};
    auto const known = m_knownNames.find(key);
    if (known != m_knownNames.end()) {
        return known->second;
    }
    std::string const& parent = *m_directoryNames[directory];
    int id = -1;
    if (m_loader->reader().budgets().textBytes.spend(parent.size() + name.size())) {
        std::string path = parent;
        if (!path.empty() && path.back() != '/') {
            path += '/';
        }
        path += name;
        id = addFile(path.c_str(), modificationTime, length);
    }
    m_knownNames.emplace(key, id);
    return id;
}

int DWARFLineResolver::declaredFileId(unsigned long long number, DwarfUnit const& unit) {
    ensureLines(nullptr);
    LockGuard guard(&m_runLock);
    DeclaredFiles::File file;
    if (m_isRunning || !m_declaredFiles.find(unit, number, file)) { // a question from within the run comes too early
        return -1;
    }
    unsigned long long const checksum = checksumOf(file.path);
    for (auto const* const ids : {&m_sourceFileIdByCrc, &m_laterFileIdByCrc}) {
        auto const known = ids->find(checksum);
        if (known != ids->end()) {
            return static_cast<int>(known->second);
        }
    }
    auto const id = static_cast<unsigned int>(m_sourceFiles.size() + m_laterFiles.size());
    SymMgrObjectPtr<SourceFile> const made(
        new SourceFile(this, id, std::move(file.path), file.modificationTime, file.length));
    m_laterFiles.push_back(made);
    m_laterFileIdByCrc.emplace(checksum, id);
    return static_cast<int>(id);
}

int DWARFLineResolver::fileIdOfNumber(unsigned long long number, DWARFCompilationUnit& unit) {
    if (unit.entries().isPartial()) {
        return declaredFileId(number, unit.entries());
    }
    LockGuard guard(&m_runLock);
    unit.runLineProgram(nullptr);
    return unit.sourceFileIds().idOf(number);
}

// --- Units and lines

ICompUnitDetails* DWARFLineResolver::compUnitDetailsById(unsigned long long id) { return m_loader->unitById(id); }

status_t DWARFLineResolver::ensureLines(Scope* scope) {
    if (m_isComplete.load(std::memory_order_acquire)) {
        return m_loader->lineStatus();
    }
    LockGuard guard(&m_runLock);
    if (m_isRunning) {
        return status_Fail; // a question from within the run
    }
    if (m_loader->lineStatus() != status_NotInitialized) {
        return m_loader->lineStatus();
    }
    m_isRunning = true;
    struct Ended { // also by memory that runs out: then the next question runs them
        bool& isRunning;
        ~Ended() { isRunning = false; }
    } const ended{m_isRunning};
    m_loader->setLineStatus(runAll(scope != nullptr ? scope : this->scope()));
    m_isComplete.store(true, std::memory_order_release);
    return m_loader->lineStatus();
}

status_t DWARFLineResolver::runAll(Scope* scope) {
    auto* const global = dynamic_cast<GlobalScope*>(this->scope());
    // The units are read in a load of symbols. With a filter it has been made already, for more kinds.
    SymMgrObjectPtr<RangeFilter> const filter(global != nullptr ? global->rangeFilter()
                                                                : SymMgrObjectPtr<RangeFilter>());
    if (scope != nullptr) {
        scope->ensureKinds(symbol_kind_Function);
    }
    status_t status = status_Fail;
    bool isAny = false;
    for (auto const& unit : m_loader->views().units()) {
        if (unit->entries().isPartial()) {
            continue;
        }
        status_t const unitStatus = unit->runLineProgram(filter.get());
        isAny = isAny || unitStatus == status_Ok;
        status = isAny ? status_Ok : unitStatus;
    }
    m_lineTable->prepare();
    m_knownNames.clear();
    return status;
}

status_t DWARFLineResolver::sourceLineIterator(SymMgrObjectPtr<SourceLines>& out, unsigned long long start,
                                               unsigned long long end, unsigned long long unit, unsigned int fileId,
                                               Scope* scope) {
    out = nullptr;
    status_t const status = ensureLines(scope);
    return status == status_Ok ? SrcLineResolver::sourceLineIterator(out, start, end, unit, fileId, scope) : status;
}

} // namespace ORV_3_30
