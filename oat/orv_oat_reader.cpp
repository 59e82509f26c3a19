// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The header of OAT data field by field, as its version has it; the tables of a DEX file tell where the next one's
// entry begins.
#include "oat/orv_oat_reader.h"

#include "core/orv_trace.h"

#include <array>
#include <cstdlib>
#include <cstring>

namespace ORV_3_30 {
namespace {

constexpr char k_magic[] = {'o', 'a', 't', '\n'};
constexpr std::uint64_t k_word = 4;

/// What differs in the headers of versions up to this one.
struct HeaderLayout {
    int lastVersion;
    bool hasFeatures; ///< Of the instruction set.
    std::uint64_t trampolines;
};
constexpr HeaderLayout k_layouts[] = {{7, false, 28}, {21, true, 36}, {28, true, 40}};

bool isAccepted(int version) {
    switch (version) {
    case 7:
    case 14:
    case 15:
    case 22:
    case 23:
    case 24:
    case 25:
    case 26:
    case 27:
    case 28: return true;
    default: return false;
    }
}

HeaderLayout const& layoutOf(int version) {
    HeaderLayout const* layout = k_layouts;
    while (layout->lastVersion < version) {
        ++layout;
    }
    return *layout;
}

/// Over what follows, or to the end.
void skipUpTo(ByteCursor& cursor, std::uint64_t count) {
    if (!cursor.skip(count)) {
        cursor.seek(cursor.size());
    }
}

} // namespace

void OatBudgets::refill(std::uint64_t size) {
    constexpr std::uint64_t k_least = std::uint64_t{1} << 16;
    constexpr std::uint64_t k_leastTexts = std::uint64_t{1} << 20;
    constexpr std::uint64_t k_textsMade = 16;      // each method has the name of its class in front of its own
    constexpr std::uint64_t k_programRereads = 16; // methods of one shape share their programs
    memberBytes.refill(k_least + 2 * size);
    nameBytes.refill(k_leastTexts + size * k_textsMade);
    // Methods of one code share their tables too, but then both are small: code takes far more than a byte a mapping.
    mappings.refill(k_least + size);
    rows.refill(k_least + size / 2);
    programBytes.refill(k_leastTexts + size * k_programRereads);
}

OatReader::OatReader(SymMgrObjectPtr<IBuffer> buffer, SymMgrObjectPtr<IAddress> oatDataStart,
                     SymMgrObjectPtr<IAddress> oatDataExec)
    : m_buffer(std::move(buffer)), m_data(m_buffer ? ByteCursor(m_buffer->data(), m_buffer->size()) : ByteCursor()),
      m_oatDataStart(std::move(oatDataStart)), m_oatDataExec(std::move(oatDataExec)),
      m_execAddress(m_oatDataExec ? m_oatDataExec->pseudoAddr() : 0) {}

status_t OatReader::readOatHeader() {
    m_dexFiles.clear(); // those of a reading that found no memory
    if (m_data.size() == 0 || !m_oatDataStart || !m_oatDataExec) {
        return status_InvalidPointer;
    }
    ByteCursor cursor = m_data;
    status_t status = readVersion(cursor);
    if (failed(status)) {
        return status;
    }
    HeaderLayout const& layout = layoutOf(m_version);
    std::uint32_t checksum = 0;
    std::uint32_t instructionSet = 0;
    std::uint32_t dexFileCount = 0;
    if (!cursor.read(checksum) || !cursor.read(instructionSet)) {
        return status_BadFileFormat;
    }
    skipUpTo(cursor, layout.hasFeatures ? k_word : 0);
    if (!cursor.read(dexFileCount) || !cursor.read(m_executableOffset)) {
        return status_BadFileFormat;
    }
    ORV_ASSERT(m_oatDataExec->pseudoAddr() - m_oatDataStart->pseudoAddr() == m_executableOffset,
               "m_oatDataExec->pseudoAddr() - m_oatDataStart->pseudoAddr() == m_executableOffset");
    std::uint32_t imageDataBegin = 0;
    std::uint32_t trailerSize = 0;
    // The trampolines and the checksum of the image; the word behind the trailer's size must be there too.
    if (!cursor.skip(layout.trampolines) || !cursor.skip(k_word) || !cursor.read(imageDataBegin) ||
        cursor.remaining() < 2 * k_word || !cursor.read(trailerSize)) {
        return status_BadFileFormat;
    }
    skipUpTo(cursor, trailerSize);
    for (std::uint32_t i = 0; i < dexFileCount && status == status_Ok; ++i) {
        status = readDexFile(cursor);
    }
    return status;
}

status_t OatReader::readVersion(ByteCursor& cursor) {
    std::array<char, 5> text{}; // a zero more than the file has
    if (cursor.remaining() < sizeof(k_magic) || std::memcmp(cursor.current(), k_magic, sizeof(k_magic)) != 0) {
        return status_BadFileFormat;
    }
    cursor.skip(sizeof(k_magic));
    if (cursor.remaining() < k_word) {
        return status_BadFileFormat;
    }
    std::memcpy(text.data(), cursor.current(), k_word);
    cursor.skip(k_word);
    m_version = static_cast<int>(std::strtol(text.data(), nullptr, 10));
    ORV_INFO("OAT file version " << m_version);
    if (!isAccepted(m_version)) {
        ORV_WARN("Unsupported version of OAT file");
        return status_UnsupportedFileVersion;
    }
    return status_Ok;
}

status_t OatReader::readDexFile(ByteCursor& cursor) {
    constexpr std::uint64_t k_wordsBehindLocation = 3; // the first offset of a class among them
    std::uint32_t locationSize = 0;
    std::uint32_t locationChecksum = 0;
    std::uint32_t dexFileOffset = 0;
    if (!cursor.read(locationSize)) {
        return status_BadFileFormat;
    }
    skipUpTo(cursor, locationSize);
    if (cursor.remaining() < k_wordsBehindLocation * k_word || !cursor.read(locationChecksum) ||
        !cursor.read(dexFileOffset) || !contains(m_data.size(), dexFileOffset, k_dexHeaderSize)) {
        return status_BadFileFormat;
    }
    DexLoader const dex(m_data, dexFileOffset, cursor.rest());
    if (!cursor.skip(std::uint64_t{dex.classCount()} * k_word)) {
        return status_BadFileFormat;
    }
    ByteCursor header = m_data;
    header.seek(dexFileOffset);
    status_t const status = checkDexHeader(header);
    if (status == status_Ok) {
        m_dexFiles.push_back(dex);
    }
    return status;
}

bool OatReader::oatClass(DexLoader const& dex, std::uint32_t classIndex, OatClass& out) const {
    return readOatClass(m_data, dex.classOffset(classIndex), m_executableOffset, out);
}

} // namespace ORV_3_30
