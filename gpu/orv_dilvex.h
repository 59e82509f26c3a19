// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// dil: debug information loader. The one of GPU kernels, which joins what the readers of program files give to a
/// symbol and lines.
///
/// One module is one kernel, of all that a program file may hold: the one that the module's targetName names. Only
/// lines of the source that was compiled from memory are kept; it has no file, and neither have they.
#pragma once

#include "core/orv_once.h"
#include "gpu/orv_gpu_parser.h"
#include "lines/orv_dil.h"
#include "symbols/orv_symbol.h"

#include <string>
#include <utility>

namespace ORV_3_30 {

class VexSrcLineResolver;

class VexDebugInfoLoader final : public DebugInfoLoader {
public:
    VexDebugInfoLoader(IFileFormatLoader* loader, std::string symFileName)
        : DebugInfoLoader(loader), m_symFileName(std::move(symFileName)), m_family(loader->architecture()) {}

    char const* symFileName() override { return m_symFileName.c_str(); }
    /// Goes by the architecture; 0 for one that is no GPU's.
    unsigned int symFileFormat() override;
    /// One symbol over all the code, whatever is asked for. status_Ok; status_InvalidPointer for a null table.
    status_t loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask,
                         ISrcLineResolver* resolver) override;
    /// Reads the lines the first time.
    ISrcLineResolver* srcLineResolver(Scope* scope, ILock* lock) override;
    status_t findStackVariable(ISymbol* /*symbol*/, unsigned long long /*pc*/, unsigned long long /*address*/,
                               SymMgrObjectPtr<IStackFrameContext>& /*context*/, SymMgrObjectPtr<ISymbol>& /*out*/,
                               bool* /*isInteger*/) override {
        return status_False;
    }

    IFileFormatLoader* moduleLoader() const { return loader(); }
    arch_t family() const { return m_family; }

private:
    std::string m_symFileName;
    arch_t m_family;                                    ///< Of the GPU.
    SymMgrObjectPtr<VexSrcLineResolver> m_lineResolver; ///< Made under the loader lock.
};

/// Has all lines from the beginning, and never a file. Nothing changes once it is open: questions take no lock.
class VexSrcLineResolver final : public SrcLineResolver {
public:
    explicit VexSrcLineResolver(VexDebugInfoLoader* loader) : SrcLineResolver(nullptr), m_loader(loader) {}
    /// Reads the lines; without any, where that fails. To be called once, before anything else: apart from
    /// construction, since a counted object that can't be finished must go by its count.
    void open();

    /// No scope has a say.
    status_t sourceLocationByAddress(SymMgrObjectPtr<ISourceLocation>& out, unsigned long long address,
                                     unsigned long long unit, Scope* scope, ISourceLocationChooser* chooser) override;
    unsigned int sourceFileCount() override { return 0; }
    ISourceFile* sourceFileById(unsigned int /*id*/) override { return nullptr; }
    ICompUnitDetails* compUnitDetailsById(unsigned long long /*id*/) override { return nullptr; }
    void lineTable(SymMgrObjectPtr<ILineTable>& out) override { out = m_lineTable.get(); }
    /// The table's rows as they are.
    status_t sourceLineIterator(SymMgrObjectPtr<SourceLines>& out, unsigned long long start, unsigned long long end,
                                unsigned long long unit, unsigned int fileId, Scope* scope) override;

private:
    SymMgrObjectPtr<LineTable> flatTable(status_t& status, Scope* /*scope*/) override {
        status = status_Ok;
        return m_lineTable;
    }
    status_t loadLines(std::string const& kernelName);
    void addLines(std::vector<VexLineEntry> const& lines, std::uint32_t fileId);

    VexDebugInfoLoader* m_loader; ///< Not counted: it owns the resolver. Used while lines are read.
    SymMgrObjectPtr<LineTable> m_lineTable;
};

/// The symbol of a kernel.
class VexSymbol final : public Symbol {
public:
    VexSymbol(IFileFormatLoader* owner, Scope* scope, ISrcLineResolver* resolver);

    /// The place of the kernel's first instruction, looked up once. status_Ok; status_False where none is known, and
    /// once the bank is gone.
    virtual status_t sourceLocation(SymMgrObjectPtr<ISourceLocation>& out);
    /// The same, with the symbol's address.
    status_t sourceLine(SymMgrObjectPtr<ISourceLine>& out) override;
    /// Those at the symbol's address.
    void sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out) override;

private:
    SymMgrObjectPtr<ISrcLineResolver> m_resolver;      ///< May be null.
    Once<SymMgrObjectPtr<ISourceLocation>> m_location; ///< Null in it where none is known.
};

} // namespace ORV_3_30
