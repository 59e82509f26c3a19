// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Streams of LZMA2 in .xz files ("The .xz File Format", 1.1), by liblzma where it was there at build time.
#include "format/orv_unpack.h"

#ifdef ORV_HAS_LZMA

#include <lzma.h>
#include <new>

namespace ORV_3_30 {

Unpacked unpackXz(unsigned char const* in, std::uint64_t size, SectionBytes& out) {
    // A stream says how large a dictionary it needs: xz -9 makes one of 64 MiB.
    constexpr std::uint64_t k_dictionaryAndMore = std::uint64_t{80} << 20;
    auto const decode = [&](unsigned char* room, std::uint64_t roomSize, std::uint64_t& produced) {
        std::uint64_t memory = k_dictionaryAndMore;
        std::size_t read = 0;
        std::size_t written = 0;
        switch (::lzma_stream_buffer_decode(&memory, 0, nullptr, in, &read, size, room, &written, roomSize)) {
        case LZMA_OK: produced = written; return Decoded::Done;
        case LZMA_BUF_ERROR: return Decoded::NeedsRoom;
        case LZMA_MEM_ERROR: throw std::bad_alloc();
        default: return Decoded::Damaged;
        }
    };
    return unpackInRoom(size, mostUnpacked(size), decode, out);
}

} // namespace ORV_3_30

#else

namespace ORV_3_30 {

Unpacked unpackXz(unsigned char const* /*in*/, std::uint64_t /*size*/, SectionBytes& out) {
    out = SectionBytes();
    return Unpacked::NotBuiltIn;
}

} // namespace ORV_3_30

#endif
