// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Entries of classes and methods, the words in front of code, and the tables of deltas between native code and DEX
// instructions.
#include "oat/orv_oat_method.h"

#include "core/orv_trace.h"

#include <algorithm>
#include <ios>

namespace ORV_3_30 {
namespace {

/// From here on entries are shorter, and what they had stands in front of the code.
constexpr int k_versionWithShortEntries = 22;
/// Up to here deltas of DEX instructions have no sign.
constexpr int k_versionWithUnsignedDeltas = 7;

constexpr std::uint64_t k_longEntry = 28;
constexpr std::uint64_t k_shortEntry = 20;
constexpr std::uint64_t k_mappingTableInEntry = 16;

constexpr std::uint32_t k_leastCodeOffset = 9; ///< What lies below has no words in front of it.
constexpr std::uint32_t k_sizeInFront = 4;
constexpr std::uint32_t k_mappingInFront = 12;

/// 0 where the data end.
std::uint32_t wordAt(ByteCursor data, std::uint64_t position) {
    std::uint32_t word = 0;
    return data.seek(position) && data.read(word) ? word : 0;
}

/// The place of a method among the entries; false for one that was not compiled. Of a bitmap the first byte alone
/// counts, by design: it tells how many were compiled up to the method, and not whether the method itself was.
bool entryIndex(OatClass const& oatClass, std::uint32_t methodIndex, std::uint32_t& out) {
    if (oatClass.type != oat_class_SomeCompiled) {
        out = methodIndex;
        return true;
    }
    constexpr std::uint32_t k_lastBit = 7;
    ByteCursor bitmap = oatClass.bitmap;
    std::uint8_t bits = 0;
    bitmap.read(bits); // 0 for an empty one
    std::uint32_t count = 0;
    for (std::uint32_t bit = 0; bit <= std::min(methodIndex, k_lastBit); ++bit) {
        count += bits >> bit & 1U;
    }
    out = count - 1;
    return count != 0;
}

} // namespace

bool readOatClass(ByteCursor data, std::uint32_t offset, std::uint32_t executableOffset, OatClass& out) {
    ByteCursor cursor = data;
    std::uint16_t status = 0;
    std::uint32_t bitmapSize = 0;
    out = {data, {}, 0, 0, executableOffset};
    if (!cursor.seek(offset) || !cursor.read(status) || !cursor.read(out.type)) {
        return false;
    }
    if (out.type == oat_class_SomeCompiled) {
        if (!cursor.read(bitmapSize)) {
            return false;
        }
        out.bitmap = ByteCursor(cursor.current(), std::min<std::uint64_t>(bitmapSize, cursor.remaining()));
        if (!cursor.skip(bitmapSize)) {
            return false;
        }
    }
    out.methods = out.type != oat_class_NoneCompiled ? cursor.position() : 0;
    return cursor.remaining() != 0;
}

std::optional<OatMethod> oatMethodByIndex(OatClass const& oatClass, std::uint32_t methodIndex, int version) {
    std::uint32_t index = 0;
    if (oatClass.methods == 0 || !entryIndex(oatClass, methodIndex, index)) {
        return OatMethod();
    }
    bool const isLong = version < k_versionWithShortEntries;
    std::uint64_t const entry = oatClass.methods + index * (isLong ? k_longEntry : k_shortEntry);
    ByteCursor cursor = oatClass.data;
    std::uint32_t codeOffset = 0;
    std::uint32_t mappingTableOffset = 0;
    bool const isThere = cursor.seek(entry) && cursor.read(codeOffset) &&
                         (!isLong || (cursor.seek(entry + k_mappingTableInEntry) && cursor.read(mappingTableOffset)));
    if (!isThere) {
        ORV_WARN("Wrong index");
        return std::nullopt;
    }
    ORV_INFO("Creating new dex method with index: " << methodIndex);
    return codeOffset > oatClass.executableOffset ? OatMethod(oatClass.data, codeOffset, mappingTableOffset, version)
                                                  : OatMethod();
}

OatMethod::OatMethod(ByteCursor data, std::uint32_t codeOffset, std::uint32_t mappingTableOffset, int version)
    : m_codeOffset(codeOffset), m_mappingTableOffset(mappingTableOffset) {
    if (codeOffset < k_leastCodeOffset || codeOffset >= data.size()) {
        return;
    }
    std::uint32_t const code = codeOffset & ~1U; // odd for Thumb
    m_codeSize = wordAt(data, code - k_sizeInFront);
    if (version < k_versionWithShortEntries || code < k_mappingInFront) {
        return;
    }
    std::uint32_t const distance = wordAt(data, code - k_mappingInFront);
    ORV_ASSERT(codeOffset > distance, "m_codeOffset > *uintCodePtr");
    m_mappingTableOffset = code - distance;
}

std::uint64_t OatMappingHead::mostPairs() const {
    constexpr std::uint64_t k_leastPair = 2;
    return std::min<std::uint64_t>(totalSize, pairs.remaining() / k_leastPair);
}

status_t readMappingHead(OatMethod const& method, ByteCursor data, OatMappingHead& out) {
    ORV_INFO("Reading dex to native mapping table ...");
    if (method.mappingTableOffset() == 0) {
        return status_False;
    }
    out.pairs = data;
    if (method.mappingTableOffset() >= data.size() || !out.pairs.seek(method.mappingTableOffset()) ||
        !out.pairs.readUleb(out.totalSize)) {
        return status_BadFileFormat;
    }
    ORV_INFO("Mapping table size: " << out.totalSize);
    if (!out.pairs.readUleb(out.pc2DexSize)) {
        return status_BadFileFormat;
    }
    if (!ORV_ASSERT(out.pc2DexSize <= out.totalSize, "false")) {
        return status_BadFileFormat;
    }
    ORV_INFO("Native to dex table size: " << out.pc2DexSize);
    ORV_INFO("Dex to native table size: " << out.totalSize - out.pc2DexSize);
    return status_Ok;
}

status_t readMappings(OatMethod const& method, OatMappingHead const& head, int version, OatMappings& out) {
    ByteCursor pairs = head.pairs;
    std::uint32_t dexPc = 0; // goes on from one table to the next, by design
    std::uint32_t native = 0;
    status_t status = status_Ok;
    for (std::uint32_t i = 0; i < head.totalSize; ++i) {
        if (i == 0 || i == head.pc2DexSize) {
            native = method.codeOffset();
        }
        std::uint32_t nativeDelta = 0;
        std::uint32_t dexDelta = 0;
        if (!pairs.readUleb(nativeDelta) ||
            !(version == k_versionWithUnsignedDeltas ? pairs.readUleb(dexDelta) : pairs.readSleb(dexDelta))) {
            status = status_BadFileFormat;
            break;
        }
        native += nativeDelta;
        dexPc += dexDelta;
        ORV_INFO(std::hex << "     nativeToDex map: 0x0" << native << " - 0x0" << dexPc);
        out.push_back({dexPc, native});
    }
    auto const byDexPc = [](OatMapping const& a, OatMapping const& b) { return a.dexPc < b.dexPc; };
    std::stable_sort(out.begin(), out.end(), byDexPc);
    return status;
}

} // namespace ORV_3_30
