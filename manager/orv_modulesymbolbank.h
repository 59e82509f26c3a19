// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The facade of all questions about one module.
#pragma once

#include "optreport/orv_optreportstore.h"
#include "orv/orv_fileformatloader.h"
#include "orv/orv_modulesymbolbank.h"
#include "orv/orv_symbolmanager.h"
#include "symbols/orv_globalscope.h"
#include "symbols/orv_name_forms.h"

namespace ORV_3_30 {

/// All kinds but plain data: what code addresses may lie in.
constexpr auto k_kindsInCode = static_cast<symbol_kind_t>(symbol_kind_Function | symbol_kind_DataAlt |
                                                          symbol_kind_Other | symbol_kind_FunctionAlt);

/// Forwards to the loaders and the global scope, tests arguments, and is the boundary at which
/// std::bad_alloc becomes a status. It is built and destroyed under the manager's loader lock, which
/// also guards its count. It stores no symbols itself.
class ModuleSymbolBank final : public SymMgrObject<IModuleSymbolBank>, public IPrefetcher {
public:
    ModuleSymbolBank(IFileFormatLoader* loader, IDebugInfoLoader* debugInfoLoader, ILock* countLock);
    ~ModuleSymbolBank() override;

    char const* execFileName() override;
    char const* symFileName() override;
    exec_format_t execFileFormat() override;
    unsigned int symFileFormat() override;
    arch_t architecture() override;
    unsigned long long preferredLoadAddress() override;
    SymMgrObjectPtr<IAddress> entryPoint() override;
    unsigned long long imageSize() override;
    ICompUnitDetails* compUnitDetailsById(unsigned int id) override;
    status_t notImplementedQuery() override { return status_NotImplemented; }
    status_t optReports(SymMgrObjectPtr<IIterator<IOptReportEntry*>>& out, SymMgrObjectPtr<IAddress> begin,
                        unsigned long long size) override;
    status_t optReportByAddress(SymMgrObjectPtr<IAddress> addr, IOptReportEntry*& out) override;
    status_t symbolRangeByAddress(IAddress* addr, SymMgrObjectPtr<ISymbolRange>& out, symbol_kind_t mask,
                                  ISymbolChooser* resolver) override;
    status_t originalSymbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, symbol_kind_t mask, IAddress* begin,
                                  IAddress* end) override;
    status_t nonOverlappedSymbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, symbol_kind_t mask, IAddress* begin,
                                       IAddress* end, ISymbolChooser* resolver) override;
    status_t sourceFileByName(char const* name, ISourceFile*& out) override;
    status_t sourceLocationByAddress(IAddress* addr, SymMgrObjectPtr<ISourceLocation>& out, unsigned long long unit,
                                     ISourceLocationChooser* chooser) override;
    status_t sectionByName(char const* name, SymMgrObjectPtr<ISection>& out) override;
    status_t segments(SymMgrObjectPtr<IIterator<ISegment*>>& out) override;
    status_t segmentByName(char const* name, ISegment*& out) override;
    status_t addressByRVA(unsigned long long rva, SymMgrObjectPtr<IAddress>& out) override;
    status_t addressByValue(unsigned long long pseudoAddr, SymMgrObjectPtr<IAddress>& out) override;
    status_t addressByOffset(IAddress* base, long long offset, SymMgrObjectPtr<IAddress>& out) override;
    status_t addressByFileOffset(unsigned long long offset, SymMgrObjectPtr<IAddress>& out) override;
    unsigned long long memoryEstimate() override;
    IPrefetcher* prefetcher() override { return this; }
    status_t findStackVariable(IAddress* pc, unsigned long long address, SymMgrObjectPtr<IStackFrameContext>& context,
                               SymMgrObjectPtr<ISymbol>& out, bool* isInteger) override;
    status_t symbolByRanges(IRanges* ranges, SymMgrObjectPtr<ISymbol>& out, bool stopAtInline,
                            bool acceptThunks) override;

    GlobalScope& globalScope() { return m_globalScope; }
    NameForms& nameForms() { return m_nameForms; }

    status_t putPseudoAddress(unsigned long long pseudoAddr) override;
    status_t putRVA(unsigned long long rva) override;

private:
    SymMgrObjectPtr<ISymbolManager> m_manager; ///< Keeps the manager alive. May be null.
    SymMgrObjectPtr<IFileFormatLoader> m_ffl;
    SymMgrObjectPtr<IDebugInfoLoader> m_debugInfoLoader; ///< May be null: raw symbols alone.
    OrvLock m_lock; ///< The bank's own lock, for the global scope; not the count's.
    GlobalScope m_globalScope;
    OptReportStore m_optReports;
    NameForms m_nameForms; ///< Of the frames that were asked for.
};

} // namespace ORV_3_30
