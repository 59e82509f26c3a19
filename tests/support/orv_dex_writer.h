// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Makes a DEX 035 file out of what an OAT description says of it: sorted ids, code items, debug programs, checksum.
///
///     DexImage const dex = writeDex(parseOat("oat 22\ndex\nclass a.B\nmethod direct f()V").dex[0], {});
///     dex.places.at("class0.method0.item"); // its code_item, from the start of the file
#pragma once

#include "support/orv_oat_text.h"

#include <map>

namespace orv_test {

/// What places in a description are counted from.
struct OatExtent {
    std::uint64_t size = 0;      ///< Of the OAT data.
    std::uint64_t codeStart = 0; ///< In the OAT data.
    std::uint64_t dexStart = 0;  ///< In the OAT data; 0 for places that don't lie in a DEX file.

    std::uint32_t at(OatPlace const& place) const {
        std::uint64_t const from = place.from == OatPlace::From::Start ? dexStart
                                   : place.from == OatPlace::From::End ? size
                                                                       : codeStart;
        return static_cast<std::uint32_t>(from + static_cast<std::uint64_t>(place.offset) - dexStart);
    }
};

struct DexImage {
    std::string bytes;
    /// "string_ids", "type_ids", "method_ids", "class_defs", "map"; of each class "class0.def" and "class0.data"; of
    /// each method, as "class0.method1", ".id", ".item" and ".debug", and as ".index" its number in method_ids.
    std::map<std::string, std::uint64_t> places;
    /// The methods of each class, by their numbers in the description, as class_data_item has them.
    std::vector<std::vector<std::size_t>> order;
};

/// Throws std::runtime_error where one class or method is there twice, or text is no UTF-8.
DexImage writeDex(OatDexText const& dex, OatExtent const& extent);

/// UTF-16 units of UTF-8, and their bytes as a DEX file has them.
std::u16string utf16(std::string const& utf8);
std::string mutf8(std::u16string const& units);

void putUleb(std::string& out, std::uint32_t value);
void putSleb(std::string& out, std::int32_t value);
void alignTo(std::string& out, std::size_t alignment);
/// Overwrites bytes that are there.
void patch(std::string& out, std::uint64_t offset, std::uint64_t value, unsigned int width);

} // namespace orv_test
