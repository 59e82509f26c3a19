// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Candidates for a GPU kernel's program file: found by name, told by the fields of its header.
#include "resolver/orv_program_files.h"

#include "gpu/orv_dilvex_qdc_utils.h"
#include "gpu/orv_dilvex_rln_utils.h"
#include "gpu/orv_gpu_program_file.h"
#include "image/orv_path.h"

namespace ORV_3_30 {
namespace {

bool beginsWell(char const* path, std::uint64_t headerSize, bool (*canParse)(IBuffer*)) {
    SymMgrObjectPtr<IBuffer> header;
    return readBytesOf(header, path, &headerSize) == status_Ok && canParse(header.get());
}

} // namespace

void VexSymbolFileToResolve::findProgramFile() {
    std::size_t const dot = m_moduleFile.rfind('.');
    if (dot != std::string::npos) {
        setSymbolFile(m_moduleFile.substr(0, dot) + ".clpdb");
    }
    m_validity = check(symbolFileName());
}

symbol_file_validity_t VexSymbolFileToResolve::check(char const* path) {
    if (path == nullptr || !fileExists(path)) {
        return symbolFileNotFound;
    }
    return checkSymbolFile(path) ? symbolFileValid : symbolFileRefused;
}

long long VexSymbolFileToResolve::validateSymbolFile(char const* resolvedSymFile) {
    LockGuard guard(lock());
    symbol_file_validity_t const found = check(resolvedSymFile);
    if (found == symbolFileValid) {
        setSymbolFile(resolvedSymFile); // who sees that it is valid sees the name
    }
    m_validity.store(found, std::memory_order_release);
    return found == symbolFileValid ? ordinal() : -1;
}

bool VexRlnSymbolFileToResolve::checkSymbolFile(char const* path) {
    return beginsWell(path, rln_utils::headerSize(), rln_utils::canParse);
}

bool VexQdcSymbolFileToResolve::checkSymbolFile(char const* path) {
    return beginsWell(path, qdc_utils::headerSize(), qdc_utils::canParse);
}

} // namespace ORV_3_30
