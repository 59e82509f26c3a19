// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// How much of debug information is read.
///
///     setReading(reading_Modern);     // ahead of the first load
#pragma once

#include "orv/orv_export.h"

namespace ORV_3_30 {

enum reading_t : unsigned int {
    /// DWARF 2 to 4, as earlier versions of these interfaces have it.
    reading_Classic = 0,
    /// What today's compilers and distributions make, beside that: DWARF 5; definitions inside namespaces, classes and
    /// functions; split units and supplementary files; zstd, and packed symbol tables; further processors; an address
    /// for
    /// each section of a relocatable file.
    reading_Modern = 1
};

/// For modules that are loaded from now on, in the whole process. A loader keeps the reading that it was made with; of
/// one file there may be loaders and banks under both, each for itself. Any thread may call.
///
/// Until the first call it is what the environment variable ORV_READING says when it is first asked for: modern, or
/// classic for everything else.
ORV_API void setReading(reading_t reading);
ORV_API reading_t reading();

} // namespace ORV_3_30
