// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Compiler optimisation remarks that a module carries.
#pragma once

#include "orv/orv_forward.h"

#include <utility>

namespace ORV_3_30 {

/// One remark. Not counted: it lives as long as the bank.
class ORV_API IOptReportEntry {
public:
    /// Version of the report format.
    virtual unsigned short version() = 0;
    /// Pseudo address of the code that the remark is about.
    virtual unsigned long long address() = 0;
    /// The text and its length in bytes; short texts are padded with NUL.
    virtual std::pair<char const*, unsigned long> text() = 0;

protected:
    ~IOptReportEntry() = default;
};

} // namespace ORV_3_30
