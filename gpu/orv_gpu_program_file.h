// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Program files by the family of GPUs that they are for.
#pragma once

#include "gpu/orv_gpu_parser.h"
#include "orv/orv_moduleimage.h"

namespace ORV_3_30 {

/// As symFileFormat tells formats; 0 for an architecture that is no GPU's.
unsigned int programFileFormat(arch_t family);
/// Null but with status_Ok. status_CantOpenFile; status_CantReadFile; status_Fail for a file that the format's reader
/// refuses, and where there is no reader.
status_t openProgramFile(SymMgrObjectPtr<IVexDebugInfoParser>& out, char const* path, arch_t family);
/// Finds the source that was compiled from memory, the one whose lines are kept. False if there is none.
bool findSourceFromMemory(std::vector<std::string> const& files, std::uint32_t& fileId);

} // namespace ORV_3_30
