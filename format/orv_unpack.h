// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Bytes that lie packed in a module's file, taken out within bounds. What a build can take out beside zlib depends on
/// the libraries that were there when it was made.
///
///     SectionBytes plain;
///     if (unpackXz(packed.bytes.get(), packed.size, plain) == Unpacked::Done) read(plain);
///
/// Memory follows what comes out, not what a header says of it, and there is a most that may come out of so many bytes.
/// All of them throw std::bad_alloc; all others of their results leave out empty.
#pragma once

#include "format/orv_section_data.h"
#include "orv/orv_reading.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace ORV_3_30 {

enum class Unpacked {
    Done,
    Damaged,
    NotBuiltIn, ///< This build has no library for it.
    NotKnown    ///< Nothing in this library is for it, or not by that reading.
};

/// Undoes the ".zdebug_" compression: "ZLIB", the uncompressed size as 8 bytes big-endian, a zlib
/// stream (RFC 1950). False, with an empty result, if in is anything else or broken.
bool uncompressZlibSection(unsigned char const* in, std::uint64_t size, SectionBytes& out);
/// Undoes the compression that SHF_COMPRESSED tells of (System V ABI, "Compressed Sections"): a header
/// of the file's class, a stream of the type that it says. By the classic reading zlib alone is known.
Unpacked uncompressFlaggedSection(unsigned char const* in, std::uint64_t size, bool is64, reading_t reading,
                                  SectionBytes& out);
/// The same for a section's bytes. What can't be taken out stays as it is by the classic reading. By the modern one it
/// is an empty block, marked as still packed, as it would be taken for names and entries; then the log has place, which
/// names the section, and the compression.
SectionBytes flaggedSectionBytes(SectionBytes raw, bool is64, reading_t reading, std::string const& place);

/// Frames of zstd (RFC 8878) behind one another, from which no more than claimed bytes may come.
Unpacked unpackZstd(unsigned char const* in, std::uint64_t size, std::uint64_t claimed, SectionBytes& out);
/// The first stream of an .xz file. What stands behind it is passed over.
Unpacked unpackXz(unsigned char const* in, std::uint64_t size, SectionBytes& out);

/// deflate can't do better than 1 : 1032 (RFC 1951), so a larger size in a header is a lie. What packs better than that
/// is held to it too, as no section of a module is: it would be made to exhaust memory.
constexpr std::uint64_t k_largestRatio = 1032;
/// From so many bytes at most, where they are not few.
inline std::uint64_t mostUnpacked(std::uint64_t size) {
    constexpr std::uint64_t k_few = std::uint64_t{1} << 26; // may be one and the same byte all through
    return std::max(k_few, size * k_largestRatio);
}

/// How a decoder of all bytes at once has ended.
enum class Decoded { Done, Damaged, NeedsRoom };

/// Runs decode(room, its size, what came out) with more room each time, as long as that is what it needs. All runs but
/// the last filled theirs: together they cost a third of the last.
template <typename Decode>
Unpacked unpackInRoom(std::uint64_t size, std::uint64_t most, Decode const& decode, SectionBytes& out) {
    constexpr std::uint64_t k_usualRatio = 16; // debug information seldom packs better
    constexpr std::uint64_t k_firstRoom = std::uint64_t{1} << 16;
    constexpr std::uint64_t k_growth = 4;
    out = SectionBytes();
    std::uint64_t room = std::min(most, size * k_usualRatio + k_firstRoom);
    for (;; room = std::min(most, room * k_growth)) {
        SectionBytes plain = allocateSectionBytes(room);
        std::uint64_t produced = 0;
        Decoded const result = decode(plain.bytes.get(), room, produced);
        if (result == Decoded::Done) {
            plain.size = produced;
            plain.bytes[produced] = 0;
            out = std::move(plain);
            return Unpacked::Done;
        }
        if (result == Decoded::Damaged || room == most) {
            return Unpacked::Damaged;
        }
    }
}

} // namespace ORV_3_30
