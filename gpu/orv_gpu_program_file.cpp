// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A program file is read as a whole; the family of GPUs tells which compiler has made it.
#include "gpu/orv_gpu_program_file.h"

#include "core/orv_byte_buffer.h"
#include "core/orv_trace.h"
#include "gpu/orv_dilvex_qdc_utils.h"
#include "gpu/orv_dilvex_rln_utils.h"
#include "image/orv_file.h"
#include "lines/orv_dil.h"

namespace ORV_3_30 {

unsigned int programFileFormat(arch_t family) {
    switch (family) {
    case arch_VexRln1:
    case arch_VexRln2: return symbolFormatVexRln;
    case arch_VexQdc1:
    case arch_VexQdc2: return symbolFormatVexQdc;
    default: return k_noSymbolFileFormat;
    }
}

status_t readBytesOf(SymMgrObjectPtr<IBuffer>& out, char const* path, std::uint64_t const* size) {
    out = nullptr;
    File file(path);
    if (file.status() != fosOK) {
        return status_CantOpenFile;
    }
    std::uint64_t const dbgInfoSize = size != nullptr ? *size : file.size();
    if (file.size() < dbgInfoSize) {
        return status_CantReadFile;
    }
    SymMgrObjectPtr<IBuffer> const dbgInfo(new ByteBuffer(dbgInfoSize));
    if (!ORV_ASSERT(dbgInfo->size() == dbgInfoSize, "dbgInfo->size() == dbgInfoSize") ||
        file.read(dbgInfoSize, dbgInfo->data()) != dbgInfoSize) {
        return status_CantReadFile;
    }
    out = dbgInfo;
    return status_Ok;
}

status_t openProgramFile(SymMgrObjectPtr<IVexDebugInfoParser>& out, char const* path, arch_t family) {
    out = nullptr;
    SymMgrObjectPtr<IBuffer> dbgInfo;
    status_t const status = readBytesOf(dbgInfo, path, nullptr);
    if (status != status_Ok) {
        return status;
    }
    switch (programFileFormat(family)) {
    case symbolFormatVexRln: rln_utils::createRlnParser(out, dbgInfo.get()); break;
    case symbolFormatVexQdc: qdc_utils::createQdcParser(out, dbgInfo.get(), path); break;
    default: break;
    }
    return out ? status_Ok : status_Fail;
}

/// Compilers call it by one of these; of two such names the first goes ahead, wherever its file stands.
status_t findSourceFromMemory(IVexDebugInfoParser& parser, std::string const& kernelName, std::uint32_t& fileId) {
    status_t status = parser.findSourceFile(kernelName, "unknown.cl", fileId);
    if (status == status_False) {
        status = parser.findSourceFile(kernelName, "<unknown>", fileId);
    }
    return status;
}

} // namespace ORV_3_30
