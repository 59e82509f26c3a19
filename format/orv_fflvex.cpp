// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// ffl: file format loader. The one of GPU kernel binaries, which are told by their name alone.
#include "format/orv_fflvex.h"

#include "core/orv_trace.h"
#include "format/orv_root.h"
#include "image/orv_file.h"

#include <cstring>

namespace ORV_3_30 {

bool isVexBinPath(char const* path) { return path != nullptr && std::strstr(path, ".clbin") != nullptr; }

void VexBinFileLoader::open() {
    File const file(m_fileName.c_str());
    if (ORV_ASSERT(file.status() == fosOK, "status == fosOK")) {
        m_size = file.size();
    }
}

void VexBinFileLoader::ensureFileInfo() {
    if (m_isFileInfoRead.load(std::memory_order_acquire)) {
        return;
    }
    LockGuard guard(lock());
    if (!m_isFileInfoRead.load(std::memory_order_relaxed)) {
        addSegment(k_baseAddress, ".text", 0, 0, imageSize(), imageSize(), segment_type_Code);
        m_isFileInfoRead.store(true, std::memory_order_release);
    }
}

status_t VexBinFileLoader::loadSymbols(ISymbolTable* table, AcceptedRanges* /*filter*/, unsigned int /*mask*/) {
    std::unique_ptr<ISymbolCallBack> const symbols = root().symbolCallBack(this, table, nullptr, 1);
    symbols->symbol({".code_vex", k_baseAddress, imageSize(), symbol_visibility_Local, symbol_kind_Other});
    symbols->finish();
    return status_Ok;
}

status_t VexBinFileLoader::collectSymbolFiles(SymbolFiles& candidates) {
    switch (m_architecture) {
    case arch_VexRln1:
    case arch_VexRln2:
        root().collectProgramFiles(candidates, fileName(), symbolFormatVexRln, symbolFileLock());
        return status_Ok;
    case arch_VexQdc1:
    case arch_VexQdc2:
        root().collectProgramFiles(candidates, fileName(), symbolFormatVexQdc, symbolFileLock());
        return status_Ok;
    default: return status_Fail;
    }
}

/// Which format the file has goes by the architecture.
IDebugInfoLoader* VexBinFileLoader::createDebugInfoLoader(char const* name, symbol_file_format_t /*format*/,
                                                          unsigned int /*flags*/) {
    return root().programFileLoader(this, name);
}

} // namespace ORV_3_30
