// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Program files of the QDC compiler: for each kernel an ELF image, whose DWARF maps source lines to instructions of a
/// virtual machine, and a blob that maps those to the machine code.
///
///     SymMgrObjectPtr<IVexDebugInfoParser> parser;
///     qdc_utils::createQdcParser(parser, bytes, fileName);   // null for any other file
///     if (parser) parser->lineInfo("kernel", lines);
#pragma once

#include "gpu/orv_gpu_mira.h"
#include "gpu/orv_gpu_qdc_blob.h"

#include <map>

namespace ORV_3_30 {

class VexQdcDebugInfoParser final : public SymMgrObject<IVexDebugInfoParser> {
public:
    /// fileName: that of the ELF images too.
    VexQdcDebugInfoParser(IBuffer* debugInfo, std::string fileName)
        : m_debugInfo(debugInfo), m_fileName(std::move(fileName)) {}
    /// To be called once, before anything else. status_Ok; status_Fail for null; status_BadFileFormat.
    status_t parse();

    unsigned int kernelCount() override { return m_header.numberOfKernels; }
    status_t kernelNames(std::vector<std::string>& out) override;
    status_t sourceFiles(std::string const& kernelName, std::vector<std::string>& out) override;
    /// status_Fail also for lists of lines that can't be joined.
    status_t lineInfo(std::string const& kernelName, std::vector<VexLineEntry>& out) override;
    status_t findSourceFile(std::string const& kernelName, char const* text, std::uint32_t& fileId) override;
    /// Whether that is why the lines that were asked for last can't be joined.
    bool areLinesInterleaved() const { return m_areLinesInterleaved; }

private:
    /// Where the parts of a kernel's record stand in the file.
    struct Record {
        std::uint64_t nameOffset;
        std::uint32_t nameSize; ///< With what it is padded by.
        std::uint64_t miraOffset;
        std::uint32_t miraSize;
        std::uint64_t vexIsaOffset;
        std::uint32_t vexIsaSize;
        std::uint64_t end;
    };

    bool readRecord(std::uint64_t offset, Record& out) const;
    std::string nameOf(Record const& record) const;
    status_t findKernel(std::string const& name, Record& out) const;
    status_t readMira(Record const& record, std::vector<VexLineEntry>& lines);
    status_t readInstructionMap(std::string const& kernelName, Record const& record, InstructionMap& out) const;

    SymMgrObjectPtr<IBuffer> m_debugInfo;
    std::string m_fileName;
    VexHeader m_header;
    std::map<std::string, std::uint64_t> m_kernels; ///< Where the record stands. Of one name the last.
    std::vector<std::string> m_files;               ///< Of the image whose lines were asked for last.
    std::uint64_t m_filesOf = 0;                    ///< Where it stands; 0 for none.
    bool m_areLinesInterleaved = false;
};

namespace qdc_utils {

std::uint64_t headerSize();
/// Whether a file's first bytes, a header at least, are of this kind. Null is no file.
bool canParse(IBuffer* data);
/// Null for a file that is none of this kind, or a broken one.
void createQdcParser(SymMgrObjectPtr<IVexDebugInfoParser>& out, IBuffer* data, char const* fileName);

} // namespace qdc_utils
} // namespace ORV_3_30
