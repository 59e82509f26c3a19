// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Candidates by build id (.note.gnu.build-id), by .gnu_debuglink, and the module itself.
#include "resolver/orv_debug_files.h"

#include "core/orv_trace.h"
#include "image/orv_path.h"
#include "resolver/orv_debug_sections.h"

namespace ORV_3_30 {
namespace {

std::string canonical(std::string const& path) {
    std::string out;
    fullPath(out, path.c_str(), false);
    return out;
}

SymMgrObjectPtr<ISectionData> sectionOf(IFileFormatHelper* helper, section_role_t role) {
    SymMgrObjectPtr<ISectionData> section;
    if (helper != nullptr) {
        helper->sectionData(section, role);
    }
    return section;
}

} // namespace

void SymbolFileCandidate::setSymbolFile(std::string const& name) {
    m_symbolFile.store(m_names.insert(name).first->c_str(), std::memory_order_release);
}

DWARFCandidate::DWARFCandidate(char const* moduleFile, long long ordinal, IFileFormatHelper* helper, ILock* lock)
    : SymbolFileCandidate(moduleFile, ordinal, lock), m_ffHelper(helper) {}

void DWARFCandidate::settle(std::string const& name, symbol_file_validity_t validity) {
    setSymbolFile(name);
    m_validity.store(validity, std::memory_order_release);
}

long long DWARFCandidate::validateSymbolFile(char const* resolvedSymFile) {
    if (resolvedSymFile == nullptr) {
        return -1;
    }
    LockGuard guard(lock());
    // The file that it holds is not read again: a change of it goes unnoticed.
    if (m_validity == symbolFileValid && canonical(resolvedSymFile) == canonical(symbolFileName())) {
        return ordinal();
    }
    if (!fileExists(resolvedSymFile) || !isSought(resolvedSymFile)) {
        return -1;
    }
    settle(resolvedSymFile, symbolFileValid);
    return ordinal();
}

// --- Build id

DWARFBuildIdSymbolFileToResolve::DWARFBuildIdSymbolFileToResolve(char const* moduleFile, long long ordinal,
                                                                 IFileFormatHelper* helper, ILock* lock)
    : DWARFCandidate(moduleFile, ordinal, helper, lock) {
    SymMgrObjectPtr<ISectionData> const note = sectionOf(helper, section_role_BuildId);
    constexpr std::size_t k_folderDigits = 2;
    if (moduleFile == nullptr || !note || !readBuildId(note.get(), m_buildId) || m_buildId.size() <= k_folderDigits) {
        m_buildId.clear();
        return;
    }
    m_soughtName =
        ".build-id/" + m_buildId.substr(0, k_folderDigits) + "/" + m_buildId.substr(k_folderDigits) + ".debug";
    settle(m_soughtName, symbolFileNotFound);
}

bool DWARFBuildIdSymbolFileToResolve::isSought(char const* path) {
    if (m_buildId.empty()) {
        return false;
    }
    ORV_INFO("validating Build ID for symbol file candidate: " << path);
    bool isElf = false;
    SymMgrObjectPtr<IFileFormatHelper> const file = openFileFormatHelper(path, helper()->reading(), isElf);
    if (!file) {
        if (!isElf) {
            ORV_INFO("cannot create ffHelper for " << path);
        }
        return false;
    }
    SymMgrObjectPtr<ISectionData> const note = sectionOf(file.get(), section_role_BuildId);
    std::string id;
    if (!note || !readBuildId(note.get(), id) || id != m_buildId) {
        return false;
    }
    ORV_INFO("validation passed for symbol file: " << path);
    return true;
}

// --- Debug link

DWARFSymbolFileToResolve::DWARFSymbolFileToResolve(char const* moduleFile, long long ordinal, IFileFormatHelper* helper,
                                                   ILock* lock)
    : DWARFCandidate(moduleFile, ordinal, helper, lock) {
    if (moduleFile == nullptr) {
        return;
    }
    SymMgrObjectPtr<ISectionData> const link = sectionOf(helper, section_role_DebugLink);
    if (link) {
        DebugLink const read = readDebugLink(*link);
        m_debugLinkCrc = read.crc;
        m_soughtName = read.name;
        search(read.name);
    } else if (sectionOf(helper, section_role_DebugInfo)) {
        settle(moduleFile, symbolFileValid);
    } else {
        m_validity = symbolFileNotFound;
    }
}

void DWARFSymbolFileToResolve::search(std::string const& name) {
    std::string directory;
    directoryName(directory, m_moduleFile.c_str());
    std::string inFolder;
    joinPath(inFolder, name.c_str(), (directory + ".debug").c_str());
    symbol_file_validity_t validity = symbolFileNotFound;
    for (std::string const& place : {directory + name, inFolder}) {
        if (!fileExists(place.c_str())) {
            continue;
        }
        if (isSought(place.c_str())) {
            settle(place, symbolFileValid);
            return;
        }
        validity = symbolFileMismatch;
    }
    settle(name, validity);
}

bool DWARFSymbolFileToResolve::isSought(char const* path) { return m_debugLinkCrc && fileCrc(path) == m_debugLinkCrc; }

// --- The module itself

BinaryWithDWARFInfo::BinaryWithDWARFInfo(char const* moduleFile, long long ordinal, IFileFormatHelper* helper,
                                         ILock* lock)
    : DWARFCandidate(moduleFile, ordinal, helper, lock) {
    if (moduleFile != nullptr) {
        m_moduleFile = canonical(moduleFile);
        m_hasDebugInfo = static_cast<bool>(sectionOf(helper, section_role_DebugInfo));
        BinaryWithDWARFInfo::validateSymbolFile(m_moduleFile.c_str());
    }
}

long long BinaryWithDWARFInfo::validateSymbolFile(char const* resolvedSymFile) {
    LockGuard guard(lock());
    if (!ORV_ASSERT(resolvedSymFile != nullptr, "resolvedSymFile != 0L")) {
        return 0;
    }
    long long result = -1;
    if (isSought(canonical(resolvedSymFile).c_str())) {
        if (!ORV_ASSERT(helper() != nullptr, "m_ffHelper != 0L")) {
            return -1;
        }
        if (m_hasDebugInfo) {
            settle(m_moduleFile, symbolFileValid);
            result = ordinal();
        } else {
            m_validity = symbolFileRefused;
        }
    }
    ORV_INFO("Symbol file: " << resolvedSymFile << " validity: " << static_cast<unsigned int>(validity()));
    return result;
}

} // namespace ORV_3_30
