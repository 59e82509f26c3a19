// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Demangled forms of names that have no symbol of their own.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_map>

namespace ORV_3_30 {

/// Keeps what was made: the same functions are inlined again and again. Any thread may ask.
class NameForms {
public:
    struct Forms {
        char const* demangled; ///< The name itself where it can't be demangled.
        char const* shortName;
    };
    /// The name must stay where it is as long as this does; it is known by that. Where too much has been kept, it
    /// stands for itself.
    Forms of(char const* name);
    /// Nobody reads a name that is longer than this, and what is made of one costs its length for each symbol.
    static constexpr std::size_t k_longestName = std::size_t{1} << 16;
    static bool standsForItself(char const* name) { return ::strnlen(name, k_longestName) == k_longestName; }

private:
    struct Texts {
        std::string demangled; ///< Empty for a name that stands for itself.
        std::string shortName;
    };
    struct Shelf {
        std::mutex lock;
        std::unordered_map<char const*, Texts> texts;
        std::size_t bytes = 0;
    };
    std::array<Shelf, 16> m_shelves;
};

} // namespace ORV_3_30
