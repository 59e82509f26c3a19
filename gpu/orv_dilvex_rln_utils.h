// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Program files of the RLN compiler: a header, a table of strings, and a line table for each kernel.
///
///     SymMgrObjectPtr<IVexDebugInfoParser> parser;
///     rln_utils::createRlnParser(parser, bytes);             // null for any other file
///     if (parser) parser->lineInfo("kernel", lines);
#pragma once

#include "gpu/orv_gpu_parser.h"

#include <string_view>

namespace ORV_3_30 {

/// The fields of a program file's header that say something.
struct RlnHeader : VexHeader {
    std::uint32_t stringTableSize = 0;
    std::uint32_t fileTableBlockSize = 0;
    std::uint32_t kernelDataCount = 0;

    /// False for a file of another kind; null is none.
    bool read(IBuffer* data);
};

class VexRlnDebugInfoParser final : public SymMgrObject<IVexDebugInfoParser> {
public:
    explicit VexRlnDebugInfoParser(IBuffer* debugInfo) : m_debugInfo(debugInfo) {}
    /// To be called once, before anything else. status_Ok; status_BadFileFormat.
    status_t parse();

    unsigned int kernelCount() override { return m_fields.numberOfKernels; }
    status_t kernelNames(std::vector<std::string>& out) override;
    /// The same for all kernels.
    status_t sourceFiles(std::string const& kernelName, std::vector<std::string>& out) override;
    /// status_InvalidArg for an empty name. Of records with the same name the first counts.
    status_t lineInfo(std::string const& kernelName, std::vector<VexLineEntry>& out) override;
    status_t findSourceFile(std::string const& kernelName, char const* text, std::uint32_t& fileId) override;

private:
    bool endsInData(std::uint64_t offset, std::uint64_t recordSize) const;
    std::uint32_t wordAt(std::uint64_t offset) const;
    std::string_view stringAt(std::size_t index) const;
    std::uint32_t firstKernel() const { return m_directories + m_files; } ///< Among the strings. 32 bits by design.
    status_t checkTables() const;
    status_t readStrings();
    status_t appendStrings(std::uint64_t first, std::uint64_t end, std::vector<std::string>& out) const;
    status_t checkRecord(std::uint64_t record, std::uint32_t position) const;
    status_t appendLines(std::uint64_t table, std::uint32_t count, std::vector<VexLineEntry>& out) const;

    SymMgrObjectPtr<IBuffer> m_debugInfo;
    RlnHeader m_fields;
    // Null until they are known to be there.
    unsigned char const* m_header = nullptr;
    unsigned char const* m_dirTableHeader = nullptr;
    unsigned char const* m_fileTableHeader = nullptr;
    std::uint32_t m_directories = 0;
    std::uint32_t m_files = 0;
    /// Where each begins, from the table's beginning: directories, files, kernels.
    std::vector<std::uint32_t> m_strings;
};

namespace rln_utils {

std::uint64_t headerSize();
/// Whether a file's first bytes, a header at least, are of this kind. Null is no file.
bool canParse(IBuffer* data);
/// Null for a file that is none of this kind, or a broken one.
void createRlnParser(SymMgrObjectPtr<IVexDebugInfoParser>& out, IBuffer* data);

} // namespace rln_utils
} // namespace ORV_3_30
