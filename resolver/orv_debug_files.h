// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The files that may hold the DWARF of an ELF module: a companion that the build id names, a companion that
/// .gnu_debuglink names, the module itself.
///
/// Each finds what it can when it is made, and accepts other files by the same rule later. They belong to the
/// module's loader, whose lock guards the checks. Loads on several threads share them: what they hand out takes no
/// lock, and lives as long as they do.
#pragma once

#include "core/orv_shared_object.h"
#include "format/orv_ffl.h"
#include "orv/orv_symbolfileresolver.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace ORV_3_30 {

/// What the three have in common.
class DWARFCandidate : public SharedObject<SymMgrObject<ISymbolFileToResolve>> {
public:
    char const* symbolFileName() override { return m_resolvedFile.load(std::memory_order_acquire); }
    char const* moduleFileName() override { return m_moduleFile.c_str(); }
    symbol_file_format_t symbolFileFormat() override { return symbolFormatDwarf; }
    symbol_file_validity_t validity() override { return m_validity; }
    long long validateSymbolFile(char const* resolvedSymFile) override;
    unsigned int candidateClassFlag() override { return 1; }

    /// The file name that the module gives, of a build id below a root; empty for a candidate that seeks none.
    std::string const& soughtName() const { return m_soughtName; }

protected:
    /// A null name stands for no module: the candidate does nothing.
    DWARFCandidate(char const* moduleFile, long long ordinal, IFileFormatHelper* helper, ILock* lock);

    /// Whether an existing file that is not the present one is the one sought.
    virtual bool isSought(char const* path) = 0;

    /// Sets the name and how far the search has got.
    void settle(std::string const& name, symbol_file_validity_t validity);
    long long ordinal() const { return m_ordinal; }
    ILock* lock() const { return m_lock; }
    IFileFormatHelper* helper() const { return m_ffHelper.get(); }

    std::string m_moduleFile;
    std::string m_soughtName; ///< Set in construction.
    std::atomic<symbol_file_validity_t> m_validity{symbolFileUnchecked};

private:
    std::deque<std::string> m_names; ///< All that were ever handed out. The present one is one of them.
    std::atomic<char const*> m_resolvedFile{""};
    SymMgrObjectPtr<IFileFormatHelper> m_ffHelper;
    long long m_ordinal;
    ILock* m_lock;
};

/// The companion of the module's build id. It looks for no file, on purpose: the name is relative, and the library
/// knows no root to put before it. A client's resolver does.
class DWARFBuildIdSymbolFileToResolve final : public DWARFCandidate {
public:
    DWARFBuildIdSymbolFileToResolve(char const* moduleFile, long long ordinal, IFileFormatHelper* helper, ILock* lock);

private:
    bool isSought(char const* path) override;

    std::string m_buildId; ///< In lower-case hexadecimal digits; empty if the module has none.
};

/// The companion that .gnu_debuglink names, beside the module or in ".debug" there, told by its CRC. A module without
/// that section stands for itself, if it has debug information, and accepts nothing else.
class DWARFSymbolFileToResolve final : public DWARFCandidate {
public:
    DWARFSymbolFileToResolve(char const* moduleFile, long long ordinal, IFileFormatHelper* helper, ILock* lock);

private:
    bool isSought(char const* path) override;
    void search(std::string const& name);

    std::optional<std::uint64_t> m_debugLinkCrc; ///< None in a module without that section.
};

/// The module itself, if it has debug information. It accepts no other file.
class BinaryWithDWARFInfo final : public DWARFCandidate {
public:
    BinaryWithDWARFInfo(char const* moduleFile, long long ordinal, IFileFormatHelper* helper, ILock* lock);

    long long validateSymbolFile(char const* resolvedSymFile) override;
    unsigned int candidateClassFlag() override { return 0; }

private:
    bool isSought(char const* path) override { return m_moduleFile == path; }

    bool m_hasDebugInfo = false; ///< Asked once: others count the section's data under another lock.
};

} // namespace ORV_3_30
