// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The binary for an offload processor that a host program carries in a section.
#pragma once

#include "orv/orv_moduleimage.h"

namespace ORV_3_30 {

class IFileFormatLoader;

constexpr bool isOffload(arch_t arch) { return (arch & ~1U) == arch_Em180; }

/// A slice of the host program's file; null, most often with a warning, where it carries none.
SymMgrObjectPtr<IModuleImage> createOffloadImage(SymMgrObjectPtr<IFileFormatLoader> loader);

} // namespace ORV_3_30
