// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The files that may hold the DWARF of an ELF module: a companion that the build id names, a companion that
/// .gnu_debuglink names, the module itself.
///
/// Each finds what it can when it is made, and accepts other files by the same rule later.
#pragma once

#include "format/orv_ffl.h"
#include "resolver/orv_symbol_file_candidate.h"

#include <cstdint>
#include <optional>
#include <string>

namespace ORV_3_30 {

/// What the three have in common.
class DWARFCandidate : public SymbolFileCandidate {
public:
    symbol_file_format_t symbolFileFormat() override { return symbolFormatDwarf; }
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
    IFileFormatHelper* helper() const { return m_ffHelper.get(); }

    std::string m_soughtName; ///< Set in construction.

private:
    SymMgrObjectPtr<IFileFormatHelper> m_ffHelper;
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
