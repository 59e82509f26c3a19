// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// One pass over a QDC blob, from field to field: nothing in it tells where the next kernel begins.
#include "gpu/orv_gpu_qdc_blob.h"

#include "core/orv_trace.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

constexpr std::uint32_t k_magic = 0xDEADD010;
constexpr std::uint64_t k_magicSize = 4;
// Sizes of the elements of arrays.
constexpr std::uint64_t k_isaMapSize = 8;
constexpr std::uint64_t k_liveIntervalMiraSize = 10;
constexpr std::uint64_t k_liveIntervalVexIsaSize = 14;
constexpr std::uint64_t k_regInfoMappingSize = 9;
constexpr unsigned int k_liveIntervalFlags = 3;
constexpr unsigned int k_registerTables = 2;

/// Each of these tells what it misses, and is false then.
class BlobWalk {
public:
    explicit BlobWalk(IBuffer& data) : m_data(data), m_cursor(cursorOver(&data)) {}

    std::uint64_t position() const { return m_cursor.position(); }
    bool seek(std::uint64_t position) { return m_cursor.seek(position); }

    bool read(std::uint32_t& out) {
        return ORV_ASSERT(m_cursor.read(out), "ptr - m_debugInfo->data() + sizeof(uint32_t) <= m_debugInfo->size()");
    }
    bool read(std::uint16_t& out) {
        return ORV_ASSERT(m_cursor.read(out), "ptr - m_debugInfo->data() + sizeof(uint16_t) <= m_debugInfo->size()");
    }
    bool read(std::uint8_t& out) {
        return ORV_ASSERT(m_cursor.read(out), "ptr - m_debugInfo->data() + sizeof(uint8_t) <= m_debugInfo->size()");
    }

    bool readKernelName(std::string& out) {
        std::uint8_t length = 0;
        if (!read(length)) {
            return false;
        }
        auto const* const name = reinterpret_cast<char const*>(m_data.data()) + position();
        if (!ORV_ASSERT(m_cursor.skip(length),
                        "ptr - m_debugInfo->data() + (size_t)kernelNameLen <= m_debugInfo->size()")) {
            return false;
        }
        out.assign(name, length);
        return true;
    }

    bool skipMap() {
        std::uint32_t count = 0;
        return read(count) &&
               ORV_ASSERT(m_cursor.skip(count * k_isaMapSize),
                          "ptr - m_debugInfo->data() + (size_t)numElements*CISAMapSize <= m_debugInfo->size()");
    }

    bool skipVariables() {
        std::uint32_t count = 0;
        bool isWhole = read(count);
        for (std::uint32_t i = 0; isWhole && i < count; ++i) {
            isWhole = piece(skipName()) && piece(skipMiraIntervals());
        }
        return isWhole;
    }

    bool skipSubroutines() {
        std::uint16_t count = 0;
        std::uint32_t word = 0;
        bool isWhole = read(count);
        for (std::uint32_t i = 0; isWhole && i < count; ++i) {
            isWhole = piece(skipName()) && read(word) && read(word) && piece(skipMiraIntervals());
        }
        return isWhole;
    }

    bool skipFlaggedIntervals() {
        std::uint8_t flag = 0;
        return read(flag) && (flag == 0 || piece(skipVexIsaIntervals()));
    }

    bool skipRegisters() {
        std::uint16_t count = 0;
        bool isWhole = read(count);
        for (std::uint32_t i = 0; isWhole && i < count; ++i) {
            isWhole = piece(skipRegister());
        }
        return isWhole;
    }

private:
    static bool piece(bool isWhole) { return ORV_ASSERT(isWhole, "status == status_Ok"); }

    bool skipName() {
        std::uint8_t length = 0;
        return read(length) && ORV_ASSERT(m_cursor.skip(length),
                                          "ptr - m_debugInfo->data() + (size_t)varNameLen <= m_debugInfo->size()");
    }
    bool skipMiraIntervals() {
        std::uint16_t count = 0;
        return read(count) &&
               ORV_ASSERT(
                   m_cursor.skip(count * k_liveIntervalMiraSize),
                   "ptr - m_debugInfo->data() + (size_t)numIntervals*LiveIntervalMIRASize <= m_debugInfo->size()");
    }
    bool skipVexIsaIntervals() {
        std::uint16_t count = 0;
        return read(count) &&
               ORV_ASSERT(
                   m_cursor.skip(count * k_liveIntervalVexIsaSize),
                   "ptr - m_debugInfo->data() + (size_t)numIntervals*LiveIntervalVexISASize <= m_debugInfo->size()");
    }
    bool skipRegister() {
        std::uint32_t word = 0;
        std::uint16_t count = 0;
        return read(word) && read(count) &&
               ORV_ASSERT(m_cursor.skip(count * k_regInfoMappingSize),
                          "ptr - m_debugInfo->data() + (size_t)numEntries*RegInfoMappingSize <= m_debugInfo->size()");
    }

    IBuffer& m_data;
    ByteCursor m_cursor;
};

/// What stands behind the two maps.
bool skipRest(BlobWalk& walk) {
    std::uint16_t reserved = 0;
    bool isWhole = walk.skipVariables() && walk.skipSubroutines() && walk.read(reserved);
    for (unsigned int i = 0; isWhole && i < k_liveIntervalFlags; ++i) {
        isWhole = walk.skipFlaggedIntervals();
    }
    for (unsigned int i = 0; isWhole && i < k_registerTables; ++i) {
        isWhole = walk.skipRegisters();
    }
    return isWhole;
}

} // namespace

status_t QdcDbgParser::walk() {
    BlobWalk walk(*m_debugInfo);
    std::uint16_t count = 0;
    if (!walk.seek(k_magicSize) || !walk.read(count)) {
        return status_BadFileFormat;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        std::string kernel;
        std::uint32_t relocationField = 0;
        if (!walk.readKernelName(kernel) || !walk.read(relocationField) || !walk.skipMap()) {
            return status_BadFileFormat;
        }
        std::uint64_t const map = walk.position();
        if (!walk.skipMap() || !skipRest(walk)) {
            return status_BadFileFormat;
        }
        if (relocationField == 0 &&
            !ORV_ASSERT(m_kernels.emplace(std::move(kernel), map).second, "m_kernels.count(kernel) == 0")) {
            return status_BadFileFormat;
        }
    }
    return status_Ok;
}

status_t QdcDbgParser::kernelNames(std::vector<std::string>& out) {
    for (auto const& [name, map] : m_kernels) {
        out.push_back(name);
    }
    return status_Ok;
}

status_t QdcDbgParser::instructionMap(std::string const& kernelName, InstructionMap& out) {
    out.clear();
    if (m_kernels.empty()) {
        return status_Ok;
    }
    auto const found = m_kernels.find(kernelName);
    if (found == m_kernels.end()) {
        return status_NotFound;
    }
    BlobWalk walk(*m_debugInfo);
    std::uint32_t count = 0;
    if (!walk.seek(found->second) || !walk.read(count)) {
        return status_BadFileFormat;
    }
    out.reserve(std::size_t{1} + std::min<std::uint64_t>(count, m_debugInfo->size() / k_isaMapSize));
    out.emplace_back(0, 0); // where the kernel begins, which the blob does not tell
    for (std::uint32_t i = 0; i < count; ++i) {
        std::uint32_t instruction = 0;
        std::uint32_t offset = 0;
        if (!walk.read(instruction) || !walk.read(offset)) {
            return status_BadFileFormat;
        }
        out.emplace_back(instruction, offset);
    }
    return status_Ok;
}

status_t createQdcDbgParser(SymMgrObjectPtr<IQdcDbgParser>& out, IBuffer* data) {
    out = nullptr;
    ByteCursor cursor = cursorOver(data);
    std::uint32_t magic = 0;
    if (!cursor.read(magic) || magic != k_magic) {
        return status_BadFileFormat;
    }
    SymMgrObjectPtr<QdcDbgParser> const parser(new QdcDbgParser(data));
    status_t const status = parser->walk();
    if (status == status_Ok) {
        out = parser.get();
    }
    return status;
}

} // namespace ORV_3_30
