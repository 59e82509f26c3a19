// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Lists of a kernel's symbols that name nothing.
#pragma once

#include "orv_cli_module.h"

namespace orv_cli {

/// Says once what is wrong with the list of a kernel that has no function by it.
void noteKernelList(Module& module, CommonOptions const& options);

} // namespace orv_cli
