// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Headers of call frame entries in both kinds of section, and encoded pointers (DWARF version 5, 6.4.1; LSB Core,
// "Exception Frames").
#include "dwarf/orv_dwarf_frame_entry.h"

#include "dwarf/orv_dwarf_frame_constants.h"

#include <algorithm>
#include <limits>

namespace ORV_3_30 {
namespace {

/// What compilers write takes thirty bytes: nobody may make us read a long one for each function.
constexpr std::uint64_t k_longestHeader = 256;

DwarfWalker walkerOver(FrameSection const& section, std::uint64_t from, std::uint64_t end) {
    DwarfWalker walker(section.bytes.data, section.bytes.size, section.addrSize);
    walker.limit(end);
    walker.seek(from);
    return walker;
}

template <typename T> bool fixed(status_t status, T value, std::uint64_t& out) {
    out = static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
    return status == status_Ok;
}

/// A number in one of the formats that a pointer may have.
bool readFormat(DwarfWalker& walker, unsigned int format, unsigned int addrSize, std::uint64_t& out) {
    std::int16_t two = 0;
    std::int32_t four = 0;
    switch (format) {
    case DW_EH_PE_absptr:
        return addrSize == 4 ? walker.getUnsigned4(out) == status_Ok
                             : addrSize == 8 && walker.getUnsigned8(out) == status_Ok;
    case DW_EH_PE_udata2: return walker.getUnsigned2(out) == status_Ok;
    case DW_EH_PE_udata4: return walker.getUnsigned4(out) == status_Ok;
    case DW_EH_PE_udata8:
    case DW_EH_PE_sdata8: return walker.getUnsigned8(out) == status_Ok;
    case DW_EH_PE_sdata2: {
        status_t const status = walker.getUnsigned2(two);
        return fixed(status, two, out);
    }
    case DW_EH_PE_sdata4: {
        status_t const status = walker.getUnsigned4(four);
        return fixed(status, four, out);
    }
    case DW_EH_PE_uleb128: out = walker.unsignedLeb(); return true;
    case DW_EH_PE_sleb128: out = static_cast<std::uint64_t>(walker.signedLeb()); return true;
    default: return false;
    }
}

/// A signal's frame, signed return addresses, tagged memory.
bool hasNoData(char letter) { return letter == 'S' || letter == 'B' || letter == 'G'; }

/// What the letters of an augmentation say, which stand behind a z. False for one that is not known: what follows it
/// can't be found.
bool readAugmentation(char const* letters, std::uint64_t count, DwarfWalker& walker, FrameCommon& out) {
    for (std::uint64_t i = 1; i < count; ++i) {
        std::uint64_t ignored = 0;
        unsigned char encoding = 0;
        switch (letters[i]) {
        case 'R':
            if (walker.getUnsigned1(encoding) != status_Ok) {
                return false;
            }
            out.encoding = encoding;
            break;
        case 'P': // the routine that is called
            if (walker.getUnsigned1(encoding) != status_Ok ||
                (encoding != DW_EH_PE_omit &&
                 !readFormat(walker, encoding & DW_EH_PE_formats, out.addrSize, ignored))) {
                return false;
            }
            break;
        case 'L': walker.skip(1); break; // how the function's own data are pointed at
        default:
            if (!hasNoData(letters[i])) {
                return false;
            }
        }
    }
    return true;
}

/// The version says which fields there are.
bool readFields(DwarfWalker& walker, unsigned int version, FrameCommon& out) {
    constexpr unsigned int k_versionWithSizes = 4;
    if (version == k_versionWithSizes) {
        unsigned char addrSize = 0;
        unsigned char segmentSize = 0;
        if (walker.getUnsigned1(addrSize) != status_Ok || walker.getUnsigned1(segmentSize) != status_Ok ||
            segmentSize != 0) {
            return false;
        }
        out.addrSize = addrSize;
    }
    out.codeFactor = walker.unsignedLeb();
    out.dataFactor = walker.signedLeb();
    if (version == 1) {
        walker.skip(1);
    } else {
        walker.skipLeb();
    }
    return out.addrSize == 4 || out.addrSize == 8;
}

} // namespace

bool nextFrameEntry(FrameSection const& section, std::uint64_t& at, FrameEntry& out) {
    DwarfWalker walker = walkerOver(section, at, section.bytes.size);
    std::uint64_t length = 0;
    // What ends the entries of one object file may stand in front of those of the next.
    do {
        out.at = walker.offset();
        at = out.at;
        if (walker.getUnsigned4(length) != status_Ok) {
            return false;
        }
    } while (length == 0);
    bool const is64 = length == 0xFFFFFFFF;
    if ((is64 && walker.getUnsigned8(length) != status_Ok) || length > walker.remaining()) {
        return false;
    }
    out.end = walker.offset() + length;
    at = out.end;
    std::uint64_t const field = walker.offset();
    bool const isWide = is64 && !section.isForExceptions;
    std::uint64_t const ofCommon =
        section.isForExceptions ? 0 : (isWide ? ~std::uint64_t{0} : std::uint64_t{0xFFFFFFFF});
    std::uint64_t id = 0;
    if (length < (isWide ? 8 : 4) || walker.getOffset(isWide, id) != status_Ok) {
        return false;
    }
    out.isCommon = id == ofCommon;
    out.body = walker.offset();
    // In one kind of section it is a distance back from itself, in the other an offset.
    out.common = section.isForExceptions ? field - id : id;
    return true;
}

bool readCommon(FrameSection const& section, std::uint64_t at, FrameCommon& out) {
    FrameEntry entry{};
    if (at >= section.bytes.size || !nextFrameEntry(section, at, entry) || !entry.isCommon) {
        return false;
    }
    DwarfWalker walker = walkerOver(section, entry.body, std::min(entry.end, entry.body + k_longestHeader));
    unsigned char version = 0;
    std::uint64_t letterCount = 0;
    if (walker.getUnsigned1(version) != status_Ok || (version != 1 && version != 3 && version != 4)) {
        return false;
    }
    char const* const letters = walker.text(letterCount);
    out = {0, entry.end, 1, 1, DW_EH_PE_absptr, section.addrSize, letterCount != 0 && *letters == 'z'};
    if (!readFields(walker, version, out)) {
        return false;
    }
    if (!out.isAugmented) {
        if (!std::all_of(letters, letters + letterCount, hasNoData)) {
            return false;
        }
        out.program = walker.offset();
        return !walker.atEnd() || entry.end == walker.offset();
    }
    std::uint64_t const length = walker.unsignedLeb();
    std::uint64_t const data = walker.offset();
    if (length > entry.end - data || !readAugmentation(letters, letterCount, walker, out)) {
        return false;
    }
    out.program = data + length;
    return walker.offset() <= out.program;
}

bool readFramePointer(FrameSection const& section, FrameCommon const& common, DwarfWalker& walker, std::uint64_t& out) {
    std::uint64_t const here = section.address + walker.offset();
    std::uint64_t value = 0;
    if ((common.encoding & DW_EH_PE_indirect) != 0 ||
        !readFormat(walker, common.encoding & DW_EH_PE_formats, common.addrSize, value)) {
        return false;
    }
    switch (common.encoding & DW_EH_PE_bases) {
    case DW_EH_PE_absptr: out = value + section.loadBias; break;
    case DW_EH_PE_pcrel: out = value + here; break;
    case DW_EH_PE_datarel: out = value + section.dataBase; break;
    default: return false;
    }
    out = common.addrSize == 4 ? out & 0xFFFFFFFF : out;
    return (common.encoding & DW_EH_PE_bases) != DW_EH_PE_datarel || section.dataBase != 0;
}

bool readFunction(FrameSection const& section, FrameEntry const& entry, FrameCommon const& common, FrameFunction& out) {
    DwarfWalker walker = walkerOver(section, entry.body, entry.end);
    std::uint64_t size = 0;
    // The size is a number in the same format.
    if (!readFramePointer(section, common, walker, out.start) ||
        !readFormat(walker, common.encoding & DW_EH_PE_formats, common.addrSize, size) || size == 0 ||
        size > std::numeric_limits<std::uint64_t>::max() - out.start) {
        return false;
    }
    out.end = out.start + size;
    if (common.isAugmented) {
        std::uint64_t const length = walker.unsignedLeb();
        if (length > walker.remaining()) {
            return false;
        }
        walker.skip(length);
    }
    out.program = walker.offset();
    out.programEnd = entry.end;
    return true;
}

} // namespace ORV_3_30
