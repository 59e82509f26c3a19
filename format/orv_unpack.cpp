// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Compressed sections: by zlib behind a header of their name's, or by the type in a header that a flag tells of (System
// V ABI, "Section Compression"). A table of types says who takes them out.
#include "format/orv_unpack.h"

#include "core/orv_cursor.h"
#include "core/orv_trace.h"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <iterator>
#include <new>
#include <zlib.h>

#ifndef ELFCOMPRESS_ZSTD
#define ELFCOMPRESS_ZSTD 2 // NOLINT(cppcoreguidelines-macro-usage): older <elf.h> have none
#endif

namespace ORV_3_30 {
namespace {

Unpacked unpackZlib(unsigned char const* in, std::uint64_t size, std::uint64_t claimed, SectionBytes& out) {
    if (claimed / k_largestRatio > size) {
        ORV_ERROR("error while uncompressing ZLIB section data");
        return Unpacked::Damaged;
    }
    SectionBytes result = tryAllocateSectionBytes(claimed);
    if (result.bytes == nullptr) {
        ORV_ERROR("Out of memory");
        throw std::bad_alloc();
    }
    uLongf produced = claimed;
    if (::uncompress(result.bytes.get(), &produced, in, size) != Z_OK) {
        ORV_ERROR("error while uncompressing ZLIB section data");
        return Unpacked::Damaged;
    }
    result.size = produced;
    result.bytes[produced] = 0;
    out = std::move(result);
    return Unpacked::Done;
}

/// A type of compression that a flagged section may have.
struct Method {
    std::uint32_t type;
    char const* name;
    reading_t since; ///< The first reading that takes it out.
    Unpacked (*unpack)(unsigned char const* in, std::uint64_t size, std::uint64_t claimed, SectionBytes& out);
};

constexpr Method k_methods[] = {
    {ELFCOMPRESS_ZLIB, "zlib", reading_Classic, unpackZlib},
    {ELFCOMPRESS_ZSTD, "zstd", reading_Modern, unpackZstd},
};

/// Null for a type that nothing here is for.
Method const* methodOf(std::uint32_t type) {
    auto const* const found = std::find_if(std::begin(k_methods), std::end(k_methods),
                                           [type](Method const& method) { return method.type == type; });
    return found != std::end(k_methods) ? found : nullptr;
}

/// What is wrong with a flagged section that could not be taken out.
std::string whyStillPacked(unsigned char const* in, std::uint64_t size, Unpacked result) {
    std::uint32_t type = 0;
    if (!ByteCursor(in, size).read(type)) {
        return "it is too short for a compressed section";
    }
    Method const* const method = methodOf(type);
    if (method == nullptr) {
        return "it is compressed by a method that is not known, " + std::to_string(type);
    }
    return std::string("it is compressed by ") + method->name +
           (result == Unpacked::NotBuiltIn ? ", which this build can't read" : ", and damaged");
}

} // namespace

bool uncompressZlibSection(unsigned char const* in, std::uint64_t size, SectionBytes& out) {
    constexpr std::uint64_t k_headerSize = 12;
    out = SectionBytes();
    if (in == nullptr || size <= k_headerSize || std::memcmp(in, "ZLIB", 4) != 0) {
        return false;
    }
    std::uint64_t uncompressedSize = 0;
    for (std::size_t i = 4; i < k_headerSize; ++i) {
        uncompressedSize = uncompressedSize << 8 | in[i];
    }
    return unpackZlib(in + k_headerSize, size - k_headerSize, uncompressedSize, out) == Unpacked::Done;
}

Unpacked uncompressFlaggedSection(unsigned char const* in, std::uint64_t size, bool is64, reading_t reading,
                                  SectionBytes& out) {
    out = SectionBytes();
    ByteCursor header(in, size);
    std::uint32_t type = 0;
    std::uint64_t uncompressedSize = 0;
    unsigned int const word = is64 ? 8 : 4;
    bool const isWhole = header.read(type) && header.skip(word - 4) && header.readWord(word, uncompressedSize) &&
                         header.skip(word); // ch_reserved, ch_size, ch_addralign
    if (!isWhole) {
        return Unpacked::Damaged;
    }
    Method const* const method = methodOf(type);
    return method != nullptr && reading >= method->since
               ? method->unpack(in + header.position(), header.remaining(), uncompressedSize, out)
               : Unpacked::NotKnown;
}

SectionBytes flaggedSectionBytes(SectionBytes raw, bool is64, reading_t reading, std::string const& place) {
    SectionBytes plain;
    Unpacked const result = uncompressFlaggedSection(raw.bytes.get(), raw.size, is64, reading, plain);
    if (result == Unpacked::Done) {
        return plain;
    }
    if (reading == reading_Classic) {
        return raw;
    }
    ORV_ERROR(place << " can't be read: " << whyStillPacked(raw.bytes.get(), raw.size, result));
    plain = allocateSectionBytes(0);
    plain.isStillPacked = true;
    return plain;
}

} // namespace ORV_3_30
