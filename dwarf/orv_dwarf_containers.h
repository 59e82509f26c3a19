// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What entries stand in: namespaces, modules, classes and functions of one unit.
///
///     Containers const containers(unit);
///     if (std::uint64_t const around = containers.around(dieOffset)) ...   // the innermost; its own comes next
///
/// Entries do not know their parents. One walk over the unit finds them all.
#pragma once

#include <cstdint>
#include <vector>

namespace ORV_3_30 {

class DwarfUnit;

/// Whether things of that tag qualify the names of what stands in them.
bool isContainer(std::uint32_t tag);

/// Not changed once it is made: any thread may ask. The unit outlives it.
class Containers {
public:
    explicit Containers(DwarfUnit const& unit);

    /// Offset of the innermost container around an entry of the unit; 0 if it stands in none.
    std::uint64_t around(std::uint64_t dieOffset) const;

private:
    static constexpr std::uint32_t k_none = ~std::uint32_t{0};
    /// Deeper ones count as standing in this one.
    static constexpr std::uint32_t k_deepest = 64;

    struct Container {
        std::uint64_t begin; ///< Of the entry.
        std::uint64_t end;   ///< Behind its children.
        std::uint32_t parent;
        std::uint32_t depth;
        bool isNeeded; ///< Something stands in it.
    };
    class Finder;

    std::vector<Container> m_containers; ///< By begin.
};

} // namespace ORV_3_30
