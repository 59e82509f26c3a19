// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What functions and variables are called.
#pragma once

#include "core/orv_once.h"
#include "dwarf/orv_dwarf_containers.h"
#include "dwarf/orv_dwarf_place.h"

#include <mutex>
#include <string>
#include <unordered_map>

namespace ORV_3_30 {

class DieChain;
class DwarfUnit;

/// The names that no section has, for as long as the reader lives. Any thread may ask.
class DwarfNames {
public:
    /// The linkage name or else the plain one, which the modern reading qualifies by what the entry stands in: a method
    /// of a class in a function is "function::class::method". Null if it is missing or empty.
    char const* of(DieChain& chain);

private:
    char const* qualified(DwarfPlace const& place, char const* name);

    struct PlaceHash {
        std::size_t operator()(DwarfPlace const& place) const;
    };
    std::mutex m_lock;
    std::unordered_map<DwarfPlace, std::string, PlaceHash> m_qualified; ///< By the entry that has the plain name.
};

} // namespace ORV_3_30
