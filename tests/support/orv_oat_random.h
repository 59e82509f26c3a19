// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Random descriptions of OAT files: small ones, with everything that a description can say, most of it sound.
#pragma once

#include "support/orv_oat_text.h"

namespace orv_test {

enum class OatOddity { None, Some };

/// The same text for the same seed. Without oddities every DEX file is valid, and every class and method is sound.
std::string randomOatText(std::uint32_t seed, OatOddity oddity = OatOddity::Some);

} // namespace orv_test
