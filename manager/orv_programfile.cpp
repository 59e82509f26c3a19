// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A program file for clients: the format's reader, asked by one thread at a time.
#include "orv/orv_programfile.h"

#include "core/orv_shared_object.h"
#include "gpu/orv_dilvex_qdc_utils.h"
#include "gpu/orv_gpu_program_file.h"
#include "lines/orv_dil.h"
#include "manager/orv_guarded.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

kernel_lines_t whyNone(IVexDebugInfoParser& parser, status_t status) {
    if (status == status_NotFound || status == status_InvalidArg) {
        return kernel_lines_NoKernel;
    }
    auto const* const qdc = dynamic_cast<VexQdcDebugInfoParser*>(&parser);
    return qdc != nullptr && qdc->areLinesInterleaved() ? kernel_lines_Interleaved : kernel_lines_Damaged;
}

class ProgramFile final : public SharedObject<SymMgrObject<IProgramFile>> {
public:
    /// Throws std::bad_alloc.
    explicit ProgramFile(SymMgrObjectPtr<IVexDebugInfoParser> parser) : m_parser(std::move(parser)) {
        m_parser->kernelNames(m_names);
        std::sort(m_names.begin(), m_names.end());
        m_names.erase(std::unique(m_names.begin(), m_names.end()), m_names.end());
    }

    unsigned int kernelCount() override { return static_cast<unsigned int>(m_names.size()); }
    char const* kernelName(unsigned int index) override {
        return index < m_names.size() ? m_names[index].c_str() : nullptr;
    }
    status_t kernelLines(char const* kernelName, kernel_lines_t& out) override {
        ORV_TRACE("kernelLines");
        if (kernelName == nullptr) {
            return status_InvalidArg;
        }
        return guarded([&] {
            LockGuard guard(&m_lock);
            out = linesOf(kernelName);
            return status_Ok;
        });
    }

private:
    kernel_lines_t linesOf(char const* kernelName) {
        std::vector<VexLineEntry> lines;
        status_t const status = m_parser->lineInfo(kernelName, lines);
        if (status != status_Ok) {
            return whyNone(*m_parser, status);
        }
        std::uint32_t source = 0;
        status_t const found = findSourceFromMemory(*m_parser, kernelName, source);
        if (failed(found)) {
            return kernel_lines_Damaged;
        }
        bool const hasOwn = found == status_Ok && std::any_of(lines.begin(), lines.end(),
                                                              [&](auto const& at) { return at.fileId == source; });
        return hasOwn ? kernel_lines_Read : kernel_lines_NoSource;
    }

    OrvLock m_lock; ///< Of the reader.
    SymMgrObjectPtr<IVexDebugInfoParser> m_parser;
    std::vector<std::string> m_names;
};

} // namespace

status_t IProgramFile::create(SymMgrObjectPtr<IProgramFile>& out, char const* path, arch_t family) {
    ORV_TRACE("IProgramFile::create");
    out = nullptr;
    if (path == nullptr || programFileFormat(family) == k_noSymbolFileFormat) {
        return status_InvalidArg;
    }
    return guarded([&] {
        SymMgrObjectPtr<IVexDebugInfoParser> parser;
        status_t const status = openProgramFile(parser, path, family);
        if (status == status_Ok) {
            out = new ProgramFile(std::move(parser));
        }
        return status;
    });
}

} // namespace ORV_3_30
