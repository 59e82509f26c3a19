// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// zstd (RFC 8878), by libzstd where it was there at build time: frame by frame, straight into the room for what comes
// out, so that a frame's claim of a window costs nothing.
#include "format/orv_unpack.h"

#ifdef ORV_HAS_ZSTD

#include "core/orv_cursor.h"

#include <memory>
#include <new>
#include <zstd.h>
#include <zstd_errors.h>

namespace ORV_3_30 {
namespace {

using Context = std::unique_ptr<ZSTD_DCtx, decltype(&ZSTD_freeDCtx)>;

Decoded decodeFrames(ZSTD_DCtx* context, ByteCursor in, unsigned char* room, std::uint64_t size,
                     std::uint64_t& produced) {
    produced = 0;
    do {
        // The library knows streams of its forerunners too, which nothing writes into sections.
        std::uint32_t magic = 0;
        if (!ByteCursor(in).read(magic) || magic != ZSTD_MAGICNUMBER) {
            return Decoded::Damaged;
        }
        std::size_t const frame = ZSTD_findFrameCompressedSize(in.current(), in.remaining());
        if (ZSTD_isError(frame) != 0) {
            return Decoded::Damaged;
        }
        std::size_t const count = ZSTD_decompressDCtx(context, room + produced, size - produced, in.current(), frame);
        if (ZSTD_isError(count) != 0) {
            ZSTD_ErrorCode const error = ZSTD_getErrorCode(count);
            if (error == ZSTD_error_memory_allocation) {
                throw std::bad_alloc();
            }
            return error == ZSTD_error_dstSize_tooSmall ? Decoded::NeedsRoom : Decoded::Damaged;
        }
        produced += count;
        in.skip(frame);
    } while (in.remaining() != 0);
    return Decoded::Done;
}

} // namespace

Unpacked unpackZstd(unsigned char const* in, std::uint64_t size, std::uint64_t claimed, SectionBytes& out) {
    out = SectionBytes();
    if (claimed > mostUnpacked(size)) {
        return Unpacked::Damaged;
    }
    Context const context(ZSTD_createDCtx(), &ZSTD_freeDCtx);
    if (!context) {
        throw std::bad_alloc();
    }
    auto const decode = [&](unsigned char* room, std::uint64_t roomSize, std::uint64_t& produced) {
        return decodeFrames(context.get(), ByteCursor(in, size), room, roomSize, produced);
    };
    return unpackInRoom(size, claimed, decode, out);
}

} // namespace ORV_3_30

#else

namespace ORV_3_30 {

Unpacked unpackZstd(unsigned char const* /*in*/, std::uint64_t /*size*/, std::uint64_t /*claimed*/, SectionBytes& out) {
    out = SectionBytes();
    return Unpacked::NotBuiltIn;
}

} // namespace ORV_3_30

#endif
