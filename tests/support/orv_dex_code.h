// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What a DEX file holds of one method: its flags, its code_item and its debug_info_item.
#pragma once

#include "support/orv_dex_ids.h"

namespace orv_test {

enum DexAccess : std::uint32_t { accPublic = 1, accStatic = 8, accNative = 0x100, accConstructor = 0x10000 };

/// The flags that a description gives or, in their absence, those that suit the name and the list.
std::uint32_t accessOf(OatMethodText const& method);
/// The method must have a debug program.
std::string debugInfo(OatMethodText const& method, DexIds const& ids);
std::string codeItem(OatMethodText const& method, std::uint32_t debugOffset);

} // namespace orv_test
