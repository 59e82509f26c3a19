// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Addresses for the sections of a relocatable file, which has none: every section begins at 0 there. What is loaded
/// gets a place of its own, in the order of the section headers, with its alignment, and a gap behind it.
///
///     LaidOutSections const space = layOutSections(headers, true);     // sh_addr says where each stands
///     placeSymbols(bytes, size, true, headers);                        // and st_value where each symbol does
///
/// Segments, sections, classes of addresses, symbols and relocations go by these two alone.
#pragma once

#include <cstdint>
#include <elf.h>
#include <string_view>
#include <vector>

namespace ORV_3_30 {

/// Where the first section stands. Numbers below it are offsets into sections, as other tools have them.
constexpr std::uint64_t k_firstLaidOutAddress = 0x10000000;
/// Of sections; also keeps the end of one apart from the start of the next.
constexpr std::uint64_t k_leastLaidOutAlignment = 16;
/// A larger one is passed over: no code runs at these addresses, and it would eat them up.
constexpr std::uint64_t k_mostLaidOutAlignment = std::uint64_t{1} << 21;

/// The memory that sections take up.
struct LaidOutSections {
    std::uint64_t start = 0;
    std::uint64_t size = 0;
    std::size_t refused = 0; ///< Sections without a place. They are loaded no more: they lose their flag for that.
};

/// Near linear in the sections. None of them overlap, nor reach beyond the addresses of the class.
LaidOutSections layOutSections(std::vector<Elf64_Shdr>& sections, bool is64);

/// A section and its name.
struct NamedSection {
    std::string_view name;
    Elf64_Shdr* section;
};

/// The same for a companion of a module: its sections stand where those of the module with their names and sizes do, of
/// several with one name the first where the first does, and so on. Both are given as the files have them.
LaidOutSections layOutLike(std::vector<NamedSection> module, std::vector<NamedSection> sections);

/// Adds to the value of each symbol of a table where its section stands. A symbol of what is not loaded, and one beyond
/// its section, is taken for undefined; its value stays, for relocations that go by it. A common symbol has no place,
/// and one of thread-local storage counts from the start of that.
void placeSymbols(unsigned char* bytes, std::uint64_t size, bool is64, std::vector<Elf64_Shdr> const& sections);

} // namespace ORV_3_30
