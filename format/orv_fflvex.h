// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The loader of GPU kernel binaries.
#pragma once

#include "format/orv_ffl.h"

#include <atomic>
#include <string>
#include <utility>

namespace ORV_3_30 {

/// True for a path that holds ".clbin" anywhere: nothing in such a file tells what it is.
bool isVexBinPath(char const* path);

/// One block of machine code at address 0, which is one kernel's: a segment and a symbol over all of it. What else
/// there is to know stands in the program file beside it.
class VexBinFileLoader final : public FileFormatLoader {
public:
    /// targetName: the kernel's, as the program file has it.
    VexBinFileLoader(std::string fileName, std::string targetName, arch_t architecture)
        : m_fileName(std::move(fileName)), m_targetName(std::move(targetName)), m_architecture(architecture) {}
    /// Looks how large the file is. To be called once, before anything else. Apart from construction, since a counted
    /// object that can't be finished must go by its count.
    void open();

    char const* fileName() override { return m_fileName.c_str(); }
    exec_format_t fileFormat() override { return exec_format_Vex; }
    arch_t architecture() override { return m_architecture; }
    unsigned long long preferredLoadAddress() override { return k_baseAddress; }
    unsigned long long entryPoint() override { return k_baseAddress; }
    unsigned long long imageSize() override { return m_size; }
    /// One symbol for all the code, whatever is asked for. status_Ok.
    status_t loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask) override;
    void sectionByName(SymMgrObjectPtr<ISection>& out, char const* /*name*/) override { out = nullptr; }
    void sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int /*index*/) override { out = nullptr; }
    char const* targetName() override { return m_targetName.c_str(); }

    /// status_Fail for an architecture that is no GPU's.
    status_t collectSymbolFiles(SymbolFiles& candidates) override;
    IDebugInfoLoader* createDebugInfoLoader(char const* name, symbol_file_format_t format, unsigned int flags) override;
    void addSectionEnds(ISymbolTable* /*table*/) override {}
    void ensureFileInfo() override;

private:
    static constexpr unsigned long long k_baseAddress = 0;

    std::string m_fileName;
    std::string m_targetName;
    unsigned long long m_size = 0;
    arch_t m_architecture;
    std::atomic<bool> m_isFileInfoRead{false}; ///< Set under the lock.
};

} // namespace ORV_3_30
