// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Packs bytes as tools pack them into modules. What the build has no library for is not defined: ORV_HAS_ZSTD and
/// ORV_HAS_LZMA tell.
#pragma once

#include "support/orv_elf_builder.h"
#include "support/orv_modern.h"

#include <string>
#include <zlib.h>
#ifdef ORV_HAS_ZSTD
#include <zstd.h>
#endif
#ifdef ORV_HAS_LZMA
#include <lzma.h>
#endif

namespace orv_test {

/// A stream of zlib's.
inline std::string zlibOf(std::string const& content) {
    uLongf size = ::compressBound(content.size());
    std::string packed(size, '\0');
    ::compress(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<Bytef const*>(content.data()),
               content.size());
    return packed.substr(0, size);
}

/// What a section flagged as compressed holds.
inline std::string flagged(ElfClass elfClass, std::uint32_t type, std::uint64_t claimedSize,
                           std::string const& stream) {
    unsigned int const word = elfClass == ElfClass::Elf64 ? 8 : 4;
    std::string out;
    ElfBuilder::put(out, type, word); // with ch_reserved
    ElfBuilder::put(out, claimedSize, word);
    ElfBuilder::put(out, 1, word);
    return out + stream;
}

#ifdef ORV_HAS_ZSTD
/// A frame with a checksum, so that a byte that has changed is noticed.
inline std::string zstdOf(std::string const& content) {
    ZSTD_CCtx* const context = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, 1);
    std::string packed(ZSTD_compressBound(content.size()), '\0');
    packed.resize(ZSTD_compress2(context, packed.data(), packed.size(), content.data(), content.size()));
    ZSTD_freeCCtx(context);
    return packed;
}
#endif

#ifdef ORV_HAS_LZMA
inline std::string xzOf(std::string const& content, std::uint32_t preset = 6) {
    std::string packed(::lzma_stream_buffer_bound(content.size()), '\0');
    std::size_t size = 0;
    ::lzma_easy_buffer_encode(preset, LZMA_CHECK_CRC64, nullptr, reinterpret_cast<std::uint8_t const*>(content.data()),
                              content.size(), reinterpret_cast<std::uint8_t*>(packed.data()), &size, packed.size());
    packed.resize(size);
    return packed;
}
#endif

} // namespace orv_test
