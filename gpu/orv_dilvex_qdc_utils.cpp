// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Program files of the QDC compiler: records of kernels by name, whose two parts are read and joined on demand.
#include "gpu/orv_dilvex_qdc_utils.h"

#include "core/orv_byte_buffer.h"
#include "core/orv_trace.h"

#include <cstring>

namespace ORV_3_30 {
namespace {

constexpr std::uint64_t k_headerSize = 28;
constexpr std::uint64_t k_kernelHeaderSize = 12;

/// Reads the header of a program file; false for a file of another kind.
bool readHeader(IBuffer* data, VexHeader& out) {
    ByteCursor cursor = cursorOver(data);
    std::uint32_t signature = 0;
    std::uint32_t totalSize = 0;
    return readFields(cursor, signature, out.formatVersion, totalSize, out.limitA, out.limitB, out.powerOfTwoField,
                      out.numberOfKernels) &&
           out.isWithinBounds();
}

/// In 32 bits by design: no name at all takes no room.
constexpr std::uint32_t alignedNameSize(std::uint32_t size) { return ((size - 1) & ~std::uint32_t{3}) + 4; }

} // namespace

/// What the headers say, whether or not it is there. False for a record whose own header is not.
bool VexQdcDebugInfoParser::readRecord(std::uint64_t offset, Record& out) const {
    ByteCursor cursor = cursorOver(m_debugInfo.get());
    std::uint32_t nameSize = 0;
    if (!cursor.seek(offset) || !readFields(cursor, nameSize, out.miraSize, out.vexIsaSize)) {
        return false;
    }
    out.nameOffset = offset + k_kernelHeaderSize;
    out.nameSize = alignedNameSize(nameSize);
    out.miraOffset = out.nameOffset + out.nameSize;
    out.vexIsaOffset = out.miraOffset + out.miraSize;
    out.end = out.vexIsaOffset + out.vexIsaSize;
    return true;
}

status_t VexQdcDebugInfoParser::parse() {
    if (!ORV_ASSERT(m_debugInfo && m_debugInfo->data() != nullptr, "m_debugInfo")) {
        return status_Fail;
    }
    std::uint64_t const size = m_debugInfo->size();
    if (!ORV_ASSERT(k_headerSize <= size, "(ptr - m_debugInfo->data()) + sizeof(SProgramDebugDataHeaderQDC) <= "
                                          "m_debugInfo->size()") ||
        !readHeader(m_debugInfo.get(), m_header)) {
        return status_BadFileFormat;
    }
    std::uint64_t next = k_headerSize;
    for (std::uint32_t i = 0; i < m_header.numberOfKernels; ++i) {
        Record record{};
        bool const isWhole =
            ORV_ASSERT(readRecord(next, record),
                       "(ptr - m_debugInfo->data()) + sizeof(SKernelDebugDataHeaderQDC) <= m_debugInfo->size()") &&
            ORV_ASSERT(record.miraOffset <= size,
                       "(ptr - m_debugInfo->data()) + kernelNameSizeAligned <= m_debugInfo->size()") &&
            ORV_ASSERT(record.vexIsaOffset <= size,
                       "(ptr - m_debugInfo->data()) + kernelHeader->SizeMiraDbgInBytes <= m_debugInfo->size()") &&
            ORV_ASSERT(record.end <= size,
                       "(ptr - m_debugInfo->data()) + kernelHeader->SizeVexIsaDbgInBytes <= m_debugInfo->size()");
        if (!isWhole) {
            return status_BadFileFormat;
        }
        m_kernels[nameOf(record)] = next;
        next = record.end;
    }
    return status_Ok;
}

/// Up to a zero byte, or the end of its room.
std::string VexQdcDebugInfoParser::nameOf(Record const& record) const {
    auto const* const name = reinterpret_cast<char const*>(m_debugInfo->data()) + record.nameOffset;
    return {name, ::strnlen(name, record.nameSize)};
}

status_t VexQdcDebugInfoParser::kernelNames(std::vector<std::string>& out) {
    for (auto const& [name, record] : m_kernels) {
        out.push_back(name);
    }
    return status_Ok;
}

/// All of it was tested when the file was read, and is told again: a header that is not there ends the search, places
/// of parts end nothing.
status_t VexQdcDebugInfoParser::findKernel(std::string const& name, Record& out) const {
    auto const found = m_kernels.find(name);
    if (found == m_kernels.end()) {
        return status_NotFound;
    }
    std::uint64_t const size = m_debugInfo->size();
    std::uint64_t const header = found->second;
    if (!ORV_ASSERT(header != 0, "kernelHeader") ||
        !ORV_ASSERT(header > 0, "(unsigned char*)kernelHeader > m_debugInfo->data()") ||
        !ORV_ASSERT(readRecord(header, out), "((unsigned char*)kernelHeader - m_debugInfo->data()) + "
                                             "sizeof(SKernelDebugDataHeaderQDC) <= m_debugInfo->size()")) {
        return status_BadFileFormat;
    }
    ORV_ASSERT(out.miraOffset > 0, "ptr > m_debugInfo->data()");
    ORV_ASSERT(contains(size, out.miraOffset, out.miraSize),
               "miraOffset + kernelHeader->SizeMiraDbgInBytes <= m_debugInfo->size()");
    ORV_ASSERT(out.vexIsaOffset > 0, "ptr > m_debugInfo->data()");
    ORV_ASSERT(contains(size, out.vexIsaOffset, out.vexIsaSize),
               "vexIsaOffset + kernelHeader->SizeVexIsaDbgInBytes <= m_debugInfo->size()");
    return status_Ok;
}

/// Both at once, so that line programs are run once, and nothing of the image stays while its lines are joined.
status_t VexQdcDebugInfoParser::readMira(Record const& record, std::vector<VexLineEntry>& lines) {
    MiraDebugInfo mira;
    status_t status = mira.open(m_debugInfo.get(), record.miraOffset, record.miraSize, m_fileName);
    if (status == status_Ok) {
        status = mira.lines(lines);
    }
    if (status == status_Ok) {
        m_filesOf = 0;
        m_files.clear();
        mira.sourceFiles(m_files);
        m_filesOf = record.miraOffset;
    }
    return status;
}

status_t VexQdcDebugInfoParser::sourceFiles(std::string const& kernelName, std::vector<std::string>& out) {
    Record record{};
    status_t const status = findKernel(kernelName, record);
    if (status != status_Ok) {
        return status;
    }
    if (m_filesOf == record.miraOffset) {
        out.insert(out.end(), m_files.begin(), m_files.end());
        return status_Ok;
    }
    MiraDebugInfo mira;
    status_t const opened = mira.open(m_debugInfo.get(), record.miraOffset, record.miraSize, m_fileName);
    return opened == status_Ok ? mira.sourceFiles(out) : opened;
}

status_t VexQdcDebugInfoParser::findSourceFile(std::string const& kernelName, char const* text, std::uint32_t& fileId) {
    std::vector<std::string> files;
    status_t const status = sourceFiles(kernelName, files);
    for (std::size_t i = 0; status == status_Ok && i < files.size(); ++i) {
        if (files[i].find(text) != std::string::npos) {
            fileId = static_cast<std::uint32_t>(i);
            return status_Ok;
        }
    }
    return status == status_Ok ? status_False : status;
}

status_t VexQdcDebugInfoParser::lineInfo(std::string const& kernelName, std::vector<VexLineEntry>& out) {
    m_areLinesInterleaved = false;
    Record record{};
    status_t status = findKernel(kernelName, record);
    if (status != status_Ok) {
        return status;
    }
    std::vector<VexLineEntry> miraLineInfo;
    status = readMira(record, miraLineInfo);
    if (!ORV_ASSERT(status == status_Ok, "status == status_Ok")) {
        return status;
    }
    if (!ORV_ASSERT(!miraLineInfo.empty(), "miraLineInfo.size() > 0")) {
        return status_Fail;
    }
    InstructionMap isaLineInfo;
    status = readInstructionMap(kernelName, record, isaLineInfo);
    if (status != status_Ok) {
        return status;
    }
    m_areLinesInterleaved = areInterleaved(miraLineInfo);
    status = joinLines(std::move(miraLineInfo), isaLineInfo, out);
    ORV_ASSERT(status == status_Ok, "status == status_Ok");
    return status;
}

status_t VexQdcDebugInfoParser::readInstructionMap(std::string const& kernelName, Record const& record,
                                                   InstructionMap& out) const {
    SymMgrObjectPtr<IBuffer> const isaDbgInfo(new ByteBuffer(record.vexIsaSize));
    if (!ORV_ASSERT(isaDbgInfo->size() == record.vexIsaSize,
                    "isaDbgInfo->size() == kernelHeader->SizeVexIsaDbgInBytes") ||
        !contains(m_debugInfo->size(), record.vexIsaOffset, record.vexIsaSize)) {
        return status_BadFileFormat;
    }
    std::memcpy(isaDbgInfo->data(), m_debugInfo->data() + record.vexIsaOffset, record.vexIsaSize);
    SymMgrObjectPtr<IQdcDbgParser> parser;
    if (createQdcDbgParser(parser, isaDbgInfo.get()) != status_Ok) {
        return status_BadFileFormat;
    }
    status_t const status = parser->instructionMap(kernelName, out);
    if (!ORV_ASSERT(status == status_Ok, "status == status_Ok")) {
        return status;
    }
    return ORV_ASSERT(!out.empty(), "isaLineInfo.size() > 0") ? status_Ok : status_Fail;
}

namespace qdc_utils {

std::uint64_t headerSize() { return k_headerSize; }

bool canParse(IBuffer* data) {
    VexHeader header;
    return readHeader(data, header);
}

void createQdcParser(SymMgrObjectPtr<IVexDebugInfoParser>& out, IBuffer* data, char const* fileName) {
    SymMgrObjectPtr<VexQdcDebugInfoParser> const parser(
        new VexQdcDebugInfoParser(data, fileName != nullptr ? fileName : ""));
    out = parser->parse() == status_Ok ? parser.get() : nullptr;
}

} // namespace qdc_utils
} // namespace ORV_3_30
