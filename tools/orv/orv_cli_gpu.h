// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Binaries of GPU kernels. Nothing in one tells which of the program's kernels it is, or which family of GPUs it is
/// for.
#pragma once

#include "orv_cli_module.h"

#include <string>
#include <vector>

namespace orv_cli {

bool isGpuFamily(arch_t arch);
/// Whether a bank has lines from a program file, or might have.
bool hasProgramFile(IModuleSymbolBank& bank);
/// What a binary's name holds.
bool isGpuBinaryName(std::string const& name);
/// The only kernel of the program file that the module's resolver finds. Of several, which are told on standard error,
/// and for any other module, the empty string.
std::string onlyKernel(Module& module, CommonOptions const& options);
/// Says once why the kernel that was asked for has no lines, where it has none. Throws Failure where there is no such
/// kernel.
void noteKernelLines(Module& module, CommonOptions const& options);
/// Of the module's program file, by name; none for any other module.
std::vector<std::string> kernelsOf(Module& module);

} // namespace orv_cli
