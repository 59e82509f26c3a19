// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// dil: debug information loader. The one of GPU kernels: the lines of one kernel are read at once, the program file is
// given up after that.
#include "gpu/orv_dilvex.h"

#include "core/orv_trace.h"
#include "format/orv_root.h"
#include "gpu/orv_gpu_program_file.h"
#include "lines/orv_sourceline_impl.h"
#include "symbols/orv_scope.h"

namespace ORV_3_30 {
namespace {

constexpr char k_symbolName[] = ".dbginfo_vex";
constexpr unsigned long long k_symbolAddress = 0;
/// The last line's code goes on as far as there is any.
constexpr std::uint32_t k_sizeOfLast = 0xFFFFFFFF;

} // namespace

// --- VexDebugInfoLoader

unsigned int VexDebugInfoLoader::symFileFormat() { return programFileFormat(m_family); }

status_t VexDebugInfoLoader::loadSymbols(ISymbolTable* table, AcceptedRanges* /*filter*/, unsigned int /*mask*/,
                                         ISrcLineResolver* resolver) {
    if (table == nullptr) {
        return status_InvalidPointer;
    }
    unsigned long long const end = k_symbolAddress + loader()->imageSize();
    SymMgrObjectPtr<SymbolScope> const scope(new SymbolScope(loader(), table->scope()));
    scope->addRange(k_symbolAddress, end);
    scope->setSymbol(new VexSymbol(loader(), scope.get(), resolver));
    table->addRange(k_symbolAddress, end, scope.get());
    return status_Ok;
}

/// Banks are made under the lock, and reading a kernel's ELF image takes it: who asks without a bank takes it first
/// too.
ISrcLineResolver* VexDebugInfoLoader::srcLineResolver(Scope* /*scope*/, ILock* /*lock*/) {
    LockGuard guard(&root().loaderLock());
    if (!m_lineResolver) {
        SymMgrObjectPtr<VexSrcLineResolver> const fresh(new VexSrcLineResolver(this));
        fresh->open();
        m_lineResolver = fresh;
    }
    return m_lineResolver.get();
}

// --- VexSrcLineResolver

void VexSrcLineResolver::open() {
    m_lineTable = new LineTable(m_loader->moduleLoader(), this);
    char const* const kernelName = m_loader->moduleLoader()->targetName();
    status_t const status = loadLines(kernelName);
    if (status != status_Ok) {
        ORV_WARN("Unable to load line info for OCL kernel " << kernelName << ". Result status code: " << status);
    }
    m_lineTable->prepare();
}

status_t VexSrcLineResolver::loadLines(std::string const& kernelName) {
    SymMgrObjectPtr<IVexDebugInfoParser> parser;
    status_t status = openProgramFile(parser, m_loader->symFileName(), m_loader->family());
    if (status != status_Ok) {
        return status;
    }
    std::vector<VexLineEntry> lines;
    status = parser->lineInfo(kernelName, lines);
    if (status != status_Ok) {
        ORV_WARN("Unable to obtain line info for OCL kernel " << kernelName << ". DebugInfoParser status: " << status);
        return status_Fail;
    }
    std::uint32_t source = 0;
    status = findSourceFromMemory(*parser, kernelName, source);
    if (failed(status)) {
        ORV_WARN("Unable to obtain source files info for OCL kernel " << kernelName
                                                                      << ". DebugInfoParser status: " << status);
        return status_Fail;
    }
    if (status != status_Ok) {
        ORV_WARN("Unable to find an appropriate source file for OCL kernel " << kernelName);
        return status_Fail;
    }
    parser = nullptr;
    addLines(lines, source);
    return status_Ok;
}

/// A line of another file has no row, and ends the one in front of it.
void VexSrcLineResolver::addLines(std::vector<VexLineEntry> const& lines, std::uint32_t fileId) {
    for (std::size_t i = 0; i < lines.size(); ++i) {
        VexLineEntry const& own = lines[i];
        if (own.fileId == fileId) {
            std::uint32_t const size = i + 1 < lines.size() ? lines[i + 1].address - own.address : k_sizeOfLast;
            m_lineTable->addLine(0, 0, own.line, own.column, own.address, size, 0);
        }
    }
}

status_t VexSrcLineResolver::sourceLocationByAddress(SymMgrObjectPtr<ISourceLocation>& out, unsigned long long address,
                                                     unsigned long long unit, Scope* /*scope*/,
                                                     ISourceLocationChooser* chooser) {
    return SrcLineResolver::sourceLocationByAddress(out, address, unit, nullptr, chooser);
}

status_t VexSrcLineResolver::sourceLineIterator(SymMgrObjectPtr<SourceLines>& out, unsigned long long start,
                                                unsigned long long end, unsigned long long unit, unsigned int fileId,
                                                Scope* /*scope*/) {
    if (start == end) {
        m_lineTable->sourceLinesByAddress(out, start, unit, fileId);
    } else {
        m_lineTable->sourceLines(out, unit, fileId, start, end);
    }
    return status_Ok;
}

// --- VexSymbol

VexSymbol::VexSymbol(IFileFormatLoader* owner, Scope* scope, ISrcLineResolver* resolver)
    : Symbol(owner, SymbolName::borrowed(k_symbolName), k_symbolAddress, scope, symbol_visibility_Local,
             symbol_kind_Other, k_noCompUnit),
      m_resolver(resolver) {}

status_t VexSymbol::sourceLocation(SymMgrObjectPtr<ISourceLocation>& out) {
    out = nullptr;
    if (owner() == nullptr || !m_resolver) {
        return status_False;
    }
    out = m_location.get([this] {
        auto location = std::make_unique<SymMgrObjectPtr<ISourceLocation>>();
        m_resolver->sourceLocationByAddress(*location, addressValue(), k_allUnits, nullptr, nullptr);
        return location;
    });
    return out ? status_Ok : status_False;
}

status_t VexSymbol::sourceLine(SymMgrObjectPtr<ISourceLine>& out) {
    out = nullptr;
    SymMgrObjectPtr<ISourceLocation> location;
    status_t const status = sourceLocation(location);
    if (status == status_Ok) {
        out = new SourceLine(owner(), location.get(), addressValue(), addressValue());
    }
    return status;
}

void VexSymbol::sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out) {
    out = nullptr;
    if (owner() != nullptr && m_resolver) {
        m_resolver->sourceLines(out, k_allUnits, k_allFiles, addressValue(), addressValue(), nullptr);
    }
}

} // namespace ORV_3_30
