// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The ELF image that the QDC compiler leaves for a kernel: its DWARF tells which source line each instruction of the
/// virtual machine, MIRA, is of. Addresses in it count instructions.
#pragma once

#include "gpu/orv_gpu_parser.h"
#include "lines/orv_dil.h"

#include <optional>

namespace ORV_3_30 {

/// A module of its own for as long as it lives, on one thread.
class MiraDebugInfo {
public:
    /// The image lies in a file that is in memory, whose name it gets. To be called once, before anything else.
    /// status_Ok; status_Fail for what is no ELF file.
    status_t open(IBuffer* file, std::uint64_t offset, std::uint64_t size, std::string const& fileName);
    /// All rows of the line table, in its order: file by file, unit by unit. Appends, as the next one does. status_Ok,
    /// with nothing where there is no debug information; what kept the line programs from being run.
    status_t lines(std::vector<VexLineEntry>& out);
    /// By the ids that the lines have. status_Ok, with none where line programs can't be run.
    status_t sourceFiles(std::vector<std::string>& out);

private:
    status_t runLinePrograms();

    SymMgrObjectPtr<IFileFormatLoader> m_loader;
    SymMgrObjectPtr<IDebugInfoLoader> m_debugInfo;
    std::optional<GlobalScope> m_scope;
    SrcLineResolver* m_resolver = nullptr; ///< Of the debug information. Null where there is none.
};

} // namespace ORV_3_30
