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
/// Finds the source that was compiled from memory, the one whose lines are kept. status_Ok; status_False if there is
/// none; what kept files from being read.
status_t findSourceFromMemory(IVexDebugInfoParser& parser, std::string const& kernelName, std::uint32_t& fileId);
/// The first bytes of a file in a block that is null but with status_Ok; null for size: all of it. status_CantOpenFile;
/// status_CantReadFile for a file that is shorter, or larger than memory.
status_t readBytesOf(SymMgrObjectPtr<IBuffer>& out, char const* path, std::uint64_t const* size);

} // namespace ORV_3_30
