// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Program files of the RLN compiler: strings are found once, records of kernels are walked for each question.
#include "gpu/orv_dilvex_rln_utils.h"

#include "core/orv_trace.h"

#include <algorithm>
#include <cstring>

namespace ORV_3_30 {
namespace {

constexpr std::uint64_t k_headerSize = 44;
constexpr std::uint64_t k_wordSize = 4;
// Of the record of a kernel.
constexpr std::uint64_t k_kernelDataHeaderSize = 12;
constexpr std::uint64_t k_lineTableHeader = k_kernelDataHeaderSize;
constexpr std::uint64_t k_lineTable = k_lineTableHeader + k_wordSize;
constexpr std::uint64_t k_lineTableEntrySize = 12;

std::uint64_t sizeOf(IBuffer& data) { return data.size(); }

} // namespace

bool RlnHeader::read(IBuffer* data) {
    ByteCursor cursor = cursorOver(data);
    std::uint32_t signature = 0;
    std::uint32_t reserved = 0;
    return readFields(cursor, signature, formatVersion, reserved, stringTableSize, reserved, fileTableBlockSize, limitA,
                      limitB, powerOfTwoField, numberOfKernels, kernelDataCount) &&
           isWithinBounds() && kernelDataCount <= numberOfKernels;
}

/// By the place of its last byte, as all tests of this format: a record may end one byte behind the data.
bool VexRlnDebugInfoParser::endsInData(std::uint64_t offset, std::uint64_t recordSize) const {
    return offset + recordSize - 1 <= sizeOf(*m_debugInfo);
}

/// What lies behind the data is 0.
std::uint32_t VexRlnDebugInfoParser::wordAt(std::uint64_t offset) const {
    ByteCursor cursor = cursorOver(m_debugInfo.get());
    cursor.seek(std::min(offset, cursor.remaining()));
    std::uint32_t word = 0;
    std::uint8_t byte = 0;
    for (unsigned int shift = 0; shift < 32 && cursor.read(byte); shift += 8) {
        word |= std::uint32_t{byte} << shift;
    }
    return word;
}

/// Ends in the data, as all that are kept do.
std::string_view VexRlnDebugInfoParser::stringAt(std::size_t index) const {
    return reinterpret_cast<char const*>(m_debugInfo->data() + k_headerSize + m_strings[index]);
}

status_t VexRlnDebugInfoParser::parse() {
    if (!m_fields.read(m_debugInfo.get())) {
        return status_BadFileFormat;
    }
    unsigned char const* const data = m_debugInfo->data();
    m_header = data;
    std::uint64_t const dirTableHeader = k_headerSize + m_fields.stringTableSize;
    if (!ORV_ASSERT(endsInData(dirTableHeader, k_wordSize),
                    "(size_t)((uint8_t*)(m_dirTableHeader + 1) - 1 - (uint8_t*)m_header) <= m_debugInfo->size()")) {
        return status_BadFileFormat;
    }
    std::uint64_t const fileTableHeader = dirTableHeader + k_wordSize;
    if (!ORV_ASSERT(endsInData(fileTableHeader, k_wordSize),
                    "(size_t)((uint8_t*)(m_fileTableHeader + 1) - 1 - (uint8_t*)m_header) <= m_debugInfo->size()")) {
        return status_BadFileFormat;
    }
    m_dirTableHeader = data + dirTableHeader;
    m_fileTableHeader = data + fileTableHeader;
    m_directories = wordAt(dirTableHeader);
    m_files = wordAt(fileTableHeader);
    return readStrings();
}

/// How many there are may be a lie: each takes a byte of the data at least, and there is room for no more.
status_t VexRlnDebugInfoParser::readStrings() {
    std::uint64_t const size = sizeOf(*m_debugInfo);
    if (!ORV_ASSERT(k_headerSize <= size,
                    "(size_t)((uint8_t*)stringTableEncoding - (uint8_t*)m_header) <= m_debugInfo->size()")) {
        return status_BadFileFormat;
    }
    unsigned char const* const strings = m_header + k_headerSize;
    std::uint64_t const room = size - k_headerSize;
    std::uint32_t const count = firstKernel() + m_fields.numberOfKernels; // 32 bits by design
    std::uint64_t next = 0;
    m_strings.reserve(
        static_cast<std::size_t>(std::min({std::uint64_t{count}, room, std::uint64_t{m_fields.stringTableSize} + 1})));
    for (std::uint32_t i = 0; i < count; ++i) {
        // One whose end would be the byte behind the data is no better than one that goes on.
        auto const* const end = static_cast<unsigned char const*>(std::memchr(strings + next, '\0', room - next));
        if (!ORV_ASSERT(end != nullptr, "(size_t)((uint8_t*)strings - (uint8_t*)m_header) <= m_debugInfo->size()")) {
            return status_BadFileFormat;
        }
        if (next <= m_fields.stringTableSize) {
            m_strings.push_back(static_cast<std::uint32_t>(next));
        } // else the table is refused below
        next = static_cast<std::uint64_t>(end - strings) + 1;
    }
    return ORV_ASSERT(next <= m_fields.stringTableSize,
                      "(size_t)(strings - stringTableEncoding) <= m_header->StringTableSize")
               ? status_Ok
               : status_BadFileFormat;
}

status_t VexRlnDebugInfoParser::checkTables() const {
    return ORV_ASSERT(m_dirTableHeader, "m_dirTableHeader") && ORV_ASSERT(m_fileTableHeader, "m_fileTableHeader")
               ? status_Ok
               : status_BadFileFormat;
}

/// Counts of directories and files that come to more than 32 bits name strings that are not there.
status_t VexRlnDebugInfoParser::appendStrings(std::uint64_t first, std::uint64_t end,
                                              std::vector<std::string>& out) const {
    std::uint64_t const behind = std::min<std::uint64_t>(end, m_strings.size());
    out.reserve(out.size() + static_cast<std::size_t>(behind > first ? behind - first : 0));
    for (std::uint64_t i = first; i < behind; ++i) {
        out.push_back(std::string(stringAt(static_cast<std::size_t>(i))));
    }
    return status_Ok;
}

status_t VexRlnDebugInfoParser::kernelNames(std::vector<std::string>& out) {
    status_t const status = checkTables();
    return status == status_Ok ? appendStrings(firstKernel(), m_strings.size(), out) : status;
}

status_t VexRlnDebugInfoParser::sourceFiles(std::string const& /*kernelName*/, std::vector<std::string>& out) {
    status_t const status = checkTables();
    return status == status_Ok ? appendStrings(m_directories, firstKernel(), out) : status;
}

status_t VexRlnDebugInfoParser::findSourceFile(std::string const& /*kernelName*/, char const* text,
                                               std::uint32_t& fileId) {
    status_t const status = checkTables();
    if (status != status_Ok) {
        return status;
    }
    std::size_t const behind = std::min<std::size_t>(firstKernel(), m_strings.size());
    for (std::size_t i = m_directories; i < behind; ++i) {
        if (stringAt(i).find(text) != std::string_view::npos) {
            fileId = static_cast<std::uint32_t>(i - m_directories);
            return status_Ok;
        }
    }
    return status_False;
}

status_t VexRlnDebugInfoParser::lineInfo(std::string const& kernelName, std::vector<VexLineEntry>& out) {
    if (kernelName.empty()) {
        return status_InvalidArg;
    }
    std::vector<std::string> names;
    status_t const result = kernelNames(names);
    if (!ORV_ASSERT(result == status_Ok, "result == status_Ok") || !ORV_ASSERT(m_header, "m_header") ||
        !ORV_ASSERT(m_fileTableHeader, "m_fileTableHeader")) {
        return status_BadFileFormat;
    }
    auto record = static_cast<std::uint64_t>(m_fileTableHeader - m_header) + m_fields.fileTableBlockSize;
    for (std::uint32_t i = 0; i < m_fields.kernelDataCount; ++i) {
        status_t const status = checkRecord(record, i);
        if (status != status_Ok) {
            return status;
        }
        std::uint32_t const index = wordAt(record);
        std::uint32_t const count = wordAt(record + k_lineTableHeader);
        if (index < names.size() && names[index] == kernelName) {
            return appendLines(record + k_lineTable, count, out);
        }
        record += k_lineTable + count * k_lineTableEntrySize;
    }
    return status_NotFound;
}

/// Of the table the first entry alone, which is looked for even where there is none.
status_t VexRlnDebugInfoParser::checkRecord(std::uint64_t record, std::uint32_t position) const {
    bool const isThere =
        ORV_ASSERT(endsInData(record, k_kernelDataHeaderSize),
                   "(size_t)((uint8_t*)(kernelDataHeader + 1) - 1 - (uint8_t*)m_header) <= m_debugInfo->size()") &&
        ORV_ASSERT(endsInData(record + k_lineTableHeader, k_wordSize),
                   "(size_t)((uint8_t*)(lineTableHeader + 1) - 1 - (uint8_t*)m_header) <= m_debugInfo->size()") &&
        ORV_ASSERT(endsInData(record + k_lineTable, k_lineTableEntrySize),
                   "(size_t)((uint8_t*)(lineTableEntry + 1) - 1 - (uint8_t*)m_header) <= m_debugInfo->size()");
    if (!isThere) {
        return status_BadFileFormat;
    }
    std::uint32_t const index = wordAt(record);
    return ORV_ASSERT(position <= index, "i <= kernelDataHeader->KernelIndex") &&
                   ORV_ASSERT(index < m_fields.numberOfKernels,
                              "kernelDataHeader->KernelIndex < m_header->NumberOfKernels")
               ? status_Ok
               : status_BadFileFormat;
}

status_t VexRlnDebugInfoParser::appendLines(std::uint64_t table, std::uint32_t count,
                                            std::vector<VexLineEntry>& out) const {
    constexpr unsigned int k_lineBits = 24;
    if (!contains(sizeOf(*m_debugInfo), table, count * k_lineTableEntrySize)) {
        return status_BadFileFormat;
    }
    ByteCursor cursor = cursorOver(m_debugInfo.get());
    cursor.seek(table);
    out.reserve(out.size() + count);
    for (std::uint32_t i = 0; i < count; ++i) {
        VexLineEntry entry{};
        std::uint32_t place = 0;
        readFields(cursor, entry.address, place, entry.fileId);
        entry.line = place & ((std::uint32_t{1} << k_lineBits) - 1);
        entry.column = place >> k_lineBits;
        out.push_back(entry);
    }
    return status_Ok;
}

namespace rln_utils {

std::uint64_t headerSize() { return k_headerSize; }

bool canParse(IBuffer* data) { return RlnHeader().read(data); }

void createRlnParser(SymMgrObjectPtr<IVexDebugInfoParser>& out, IBuffer* data) {
    SymMgrObjectPtr<VexRlnDebugInfoParser> const parser(new VexRlnDebugInfoParser(data));
    out = parser->parse() == status_Ok ? parser.get() : nullptr;
}

} // namespace rln_utils
} // namespace ORV_3_30
