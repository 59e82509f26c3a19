// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The supplementary file of a file with debug information: what several files have in common, which tools such as dwz
/// take out of each. It is named by .debug_sup (DWARF version 5, 7.3.6) or by .gnu_debugaltlink, whose path ends with a
/// zero byte, behind which the build id of the file stands.
#pragma once

#include "format/orv_ffl.h"

namespace ORV_3_30 {

/// Looked for where the name says, from the folder of the debug file, as it is named and without symbolic links, and
/// under debug roots: the distributions', and the one that the debug file lies in as a companion of the module. Null if
/// the debug file names none, and if none that was found has its id; then the log says so.
SymMgrObjectPtr<IFileFormatHelper> openSupplementFile(IFileFormatHelper& debug, std::string const& debugFile,
                                                      std::string const& moduleFile);

} // namespace ORV_3_30
