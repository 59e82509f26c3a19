// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Which units a question for code at certain addresses needs, by the addresses that their own entries tell.
#pragma once

#include "dwarf/orv_dwarf_reader.h"

#include <set>
#include <vector>

namespace ORV_3_30 {

/// By the units' place in the reader: true for one that holds an address or begins closest below it, and for one that
/// does not tell where it is. Under the load lock.
std::vector<bool> unitsNeeded(DwarfReader& reader, std::set<unsigned long long> const& addresses);

} // namespace ORV_3_30
