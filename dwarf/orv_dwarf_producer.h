// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What a unit's producer text tells of the compiler, and the merging of option texts.
#pragma once

#include <string>

namespace ORV_3_30 {

enum compiler_kind_t : unsigned int {
    compiler_Unknown = 0,
    compiler_Gnu = 1,
    compiler_Gnu296 = 2,
    compiler_VarkoOld = 3, ///< Major version below 8.
    compiler_Varko = 4
};

struct Compiler {
    compiler_kind_t kind = compiler_Unknown;
    unsigned int major = 0;
    unsigned int minor = 0;
    std::string optReportFile; ///< Empty where the text names none.
};

Compiler parseProducer(char const* producer);

/// Brings a unit's options up to date from those of a part of it. Only debug and optimisation options
/// count, and an optimisation that comes with a stack check does not.
void mergeOptions(std::string& options, char const* newText);

} // namespace ORV_3_30
