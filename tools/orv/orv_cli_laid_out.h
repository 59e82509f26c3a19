// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Relocatable files, laid out.
#pragma once

#include "orv_cli_module.h"

namespace orv_cli {

/// In a relocatable file every section begins at 0, so an address means nothing without its section. This image gives
/// each section that would be loaded a place of its own, as a linker does: in the section headers, in the values of the
/// symbols, and by two program headers, one over all code and one over the rest. Null for any other file.
SymMgrObjectPtr<IModuleImage> laidOutImage(SymMgrObjectPtr<IModuleImage> const& file);

/// True for a file that the library lays out under the modern reading.
bool isRelocatable(IModuleImage& file);

} // namespace orv_cli
