// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// How long the demangled form of a name can become.
///
/// A mangled name refers back to what it has spelled out (Itanium C++ ABI, 5.1.8 "Compression"), so
/// its text can grow exponentially with its length. The runtime's demangler has no bound; this one is
/// asked first.
#pragma once

#include <cstdint>
#include <string_view>

namespace ORV_3_30 {

constexpr std::uint64_t k_unboundedSize = ~std::uint64_t{0};

/// About the bytes of the demangled text, rather too many than too few. k_unboundedSize for what does
/// not follow the grammar: the runtime's demangler may not come back from such a name.
std::uint64_t mangledSizeBound(std::string_view mangled);

} // namespace ORV_3_30
