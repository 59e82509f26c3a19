// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What a reader must find in an OAT file, worked out step by step from the description that the file was made of.
///
///     OatDescription const description = randomOat(seed);
///     OatFile const file = writeOat(description);
///     OatExpectation const wanted = expectOat(description, file);
///
/// Of the file itself only what the description does not say is read: entries that lie in other entries, tables and
/// programs of raw bytes. Throws std::logic_error where a description leads the reader to where nothing was laid out.
#pragma once

#include "support/orv_oat_writer.h"

namespace orv_test {

struct OatSymbolRow {
    std::string name;
    std::uint64_t address;
    std::uint64_t size;
};

/// A line as it is put into the line table.
struct OatLineRow {
    std::string file;
    std::uint32_t line;
    std::uint64_t address;
    std::uint64_t length;
};

enum OatStatus : std::uint32_t {
    oatOk = 0,
    oatFalse = 1,
    oatInvalidPointer = 0x10000006,
    oatIncorrectFile = 0x1000000D,
    oatUnsupportedVersion = 0x1000001A
};

struct OatExpectation {
    std::vector<OatSymbolRow> symbols{}; ///< In the order of the walk.
    std::vector<OatLineRow> rows{};      ///< In the order of the walk.
    /// What the last method gave that was looked at; Ok for a class without methods; False for no class at all.
    std::uint32_t status = oatFalse;
};

enum class OatLines { Wanted, NotWanted };

OatExpectation expectOat(OatDescription const& description, OatFile const& file, OatLines lines = OatLines::Wanted);

} // namespace orv_test
