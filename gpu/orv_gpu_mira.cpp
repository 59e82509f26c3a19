// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A kernel's ELF image goes the way of any module, on a scope of its own; the line table is read as it stands.
#include "gpu/orv_gpu_mira.h"

#include "core/orv_trace.h"
#include "format/orv_fflelf.h"
#include "image/orv_memoryimage.h"

namespace ORV_3_30 {

status_t MiraDebugInfo::open(IBuffer* file, std::uint64_t offset, std::uint64_t size, std::string const& fileName) {
    SymMgrObjectPtr<IModuleImage> const image(new MemoryImage(file, offset, size, fileName));
    if (!isElf(image.get())) {
        return status_Fail;
    }
    SymMgrObjectPtr<ElfFileLoader> const loader(new ElfFileLoader);
    loader->open(image);
    m_loader = loader.get();
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
    status_t const status = m_loader->symbolFiles(candidates);
    if (!ORV_ASSERT(status == status_Ok, "status == status_Ok")) {
        return status;
    }
    // The first candidate as it is: of an image that names a companion that is the companion. By debug link it lies
    // beside the program file; by build id nobody has looked for it.
    m_loader->debugInfoLoader(m_debugInfo, 0, 0);
    m_scope.emplace(m_loader.get(), m_debugInfo.get(), nullptr);
    m_resolver = dynamic_cast<SrcLineResolver*>(m_scope->srcLineResolver());
    return status_Ok;
}

/// By a question for a line: files are known once they have been run.
status_t MiraDebugInfo::runLinePrograms() {
    SymMgrObjectPtr<SourceLines> lines;
    return m_resolver->sourceLines(lines, k_allUnits, k_allFiles, 0, 0, nullptr);
}

status_t MiraDebugInfo::lines(std::vector<VexLineEntry>& out) {
    if (m_resolver == nullptr) {
        return status_Ok;
    }
    status_t const status = runLinePrograms();
    if (status != status_Ok) {
        return status;
    }
    SymMgrObjectPtr<ILineTable> table;
    m_resolver->lineTable(table);
    auto const* const rows = dynamic_cast<LineTable*>(table.get());
    if (rows == nullptr) {
        return status_Ok;
    }
    // Not by a question for all addresses: rows of no size at the first one would be missing.
    out.reserve(out.size() + rows->rowCount());
    for (SrcRange const& range : rows->ordered()->ranges) {
        for (std::uint32_t const row : range.rows) {
            SrcLocator const at = rows->locator(row);
            out.push_back({static_cast<std::uint32_t>(at.start), at.line, at.column, at.fileId});
        }
    }
    return status_Ok;
}

status_t MiraDebugInfo::sourceFiles(std::vector<std::string>& out) {
    if (m_resolver == nullptr) {
        return status_Ok;
    }
    runLinePrograms();
    unsigned int const count = m_resolver->sourceFileCount();
    for (unsigned int id = 0; id < count; ++id) {
        ISourceFile* const file = m_resolver->sourceFileById(id);
        char const* const sourceFileName = file != nullptr ? file->path() : "";
        ORV_ASSERT(*sourceFileName != '\0', "sourceFileName");
        out.push_back(sourceFileName);
    }
    return status_Ok;
}

} // namespace ORV_3_30
