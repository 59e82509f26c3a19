// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What entries learn from their origins: an inlined body has its name from the function that was inlined.
#pragma once

#include "core/orv_once.h"
#include "dwarf/orv_dwarf_place.h"

#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

struct AttrValue;

/// Of no file of a line table.
constexpr std::uint64_t k_noFile = ~std::uint64_t{0};

/// Where something was declared: each number but the file's is 0 where none of the entries tells it.
struct DeclPlace {
    std::uint64_t file = k_noFile; ///< Number in the line table of the unit.
    std::uint64_t line = 0;
    std::uint64_t column = 0;
    std::uint64_t discriminator = 0;
    DwarfUnit* unit = nullptr;
};

/// What an origin tells, with its own origins.
struct OriginFacts {
    char const* name = nullptr; ///< The linkage name or else the plain one; null if it is missing or empty.
    bool hasPlace = false;      ///< It tells addresses.
    bool isExternal = false;
    bool isCut = false; ///< Too much was read before: nothing is known.
    DeclPlace declared;
};

/// Keeps what was read of one file: the same functions are inlined again and again. Any thread may ask.
class OriginTable {
public:
    static constexpr std::size_t k_manyShelves = 32;
    static constexpr std::size_t k_fewShelves = 2; ///< For one of many files, each of which has little.

    explicit OriginTable(std::size_t shelves = k_manyShelves) : m_count(shelves) {}
    /// What the entry tells that a reference in a unit leads to. Nothing for one that can't be read.
    static OriginFacts factsOf(DwarfUnit& asking, AttrValue const& reference);

private:
    OriginFacts factsOf(DwarfPlace const& place);

    /// Threads that read different functions seldom meet in one.
    struct Shelf {
        std::mutex lock;
        std::unordered_map<std::uint64_t, OriginFacts> facts; ///< By the offset.
    };
    std::size_t m_count;
    Once<std::vector<Shelf>>
        m_shelves; ///< Made at the first question: what is counted allocates nothing as it is made.
};

} // namespace ORV_3_30
