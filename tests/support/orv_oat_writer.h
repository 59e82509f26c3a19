// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Makes OAT files, byte for byte, from the text that orv_oat_text.h describes:
///
///     OatFile const oat = writeOat("oat 22\n"
///                                  "dex\n"
///                                  "class com.example.Foo\n"
///                                  "  method direct main(II)V code=32\n"
///                                  "    map 0:0 4:2\n"
///                                  "    debug 12 : step 0 0; step 2 1; end\n");
///     TempFile file(oat.elf);
///     std::string bad = oat.data;
///     bad[oat.places.at("dex0.class0.type")] = 1;
#pragma once

#include "support/orv_oat_text.h"

#include <map>

namespace orv_test {

struct OatFile {
    std::string elf;              ///< The whole file.
    std::string data;             ///< The OAT data, from oatdata to the end of oatlastword.
    std::vector<std::string> dex; ///< Each DEX file, as in the data.
    /// Where things lie in the data. Of the header: "magic", "version", "dexFileCount", "executableOffset",
    /// "trampolines", "imageDataBegin", "trailerSize", "trailer", "code" (where the code begins). Of a DEX file: "dex0"
    /// (its header), "dex0.locationSize", "dex0.dexFileOffset", "dex0.classOffsets", and what DexImage::places has, as
    /// in "dex0.string_ids". Of a class: "dex0.class1" (its OatClass), ".type", ".bitmapSize", ".bitmap", ".entries".
    /// Of a method, by its number in the description: "dex0.class1.method2.entry", ".map" and ".code" (always even).
    std::map<std::string, std::uint64_t> places;
    /// The methods of each class of each DEX file, by their numbers in the description, as class_data_item has them.
    std::vector<std::vector<std::vector<std::size_t>>> order;
    std::uint64_t dataOffset;  ///< Of the data in the file.
    std::uint64_t dataAddress; ///< Value of oatdata.
    std::uint64_t execAddress; ///< Value of oatexec.
};

/// Throws std::runtime_error where a description cannot be laid out.
OatFile writeOat(OatDescription const& description);
OatFile writeOat(std::string const& text);

} // namespace orv_test
