// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The facade: arguments are tested here, and a lack of memory becomes a status.
#include "manager/orv_modulesymbolbank.h"

#include "manager/orv_guarded.h"

#include "core/orv_trace.h"
#include "image/orv_path.h"
#include "manager/orv_range_cover.h"
#include "manager/orv_symbolmanager.h"

#include <new>

namespace ORV_3_30 {
namespace {

constexpr unsigned long long k_highestAddress = ~0ULL;
/// What the symbols of a file come to in memory, against its size.
constexpr unsigned long long k_memoryPerFileByte = 8;

} // namespace

status_t IModuleSymbolBank::create(SymMgrObjectPtr<IModuleSymbolBank>& bank, SymMgrObjectPtr<IModuleImage> image,
                                   ISymbolFileResolver* resolver, bool newLoader, char const* targetName) {
    ORV_TRACE("create");
    return guarded([&] {
        SymMgrObjectPtr<SymbolManager> manager;
        {
            LockGuard guard(&SymbolManager::managerLock());
            manager = SymbolManager::instance();
        }
        if (!manager) {
            ORV_ERROR("can't instantiate ISymbolManager object\n");
            return status_Fail;
        }
        return manager->loadSymbolsFromModule(bank, image, resolver, newLoader ? load_flags_NewLoader : load_flags_None,
                                              targetName);
    });
}

ModuleSymbolBank::ModuleSymbolBank(IFileFormatLoader* loader, IDebugInfoLoader* debugInfoLoader, ILock* countLock)
    : SymMgrObject(countLock), m_manager(SymbolManager::current()), m_ffl(loader), m_debugInfoLoader(debugInfoLoader),
      m_globalScope(loader, debugInfoLoader, &m_lock), m_optReports(loader, debugInfoLoader) {
    ORV_TRACE("ModuleSymbolBank");
    ORV_ASSERT(m_ffl, "m_ffl");
}

ModuleSymbolBank::~ModuleSymbolBank() {
    ORV_TRACE("~ModuleSymbolBank");
    if (m_manager) {
        static_cast<SymbolManager*>(m_manager.get())->releaseBank(m_ffl.get(), m_debugInfoLoader.get());
    }
    // The rest goes in the order against the declarations: scope and symbols first, then the debug
    // information, then the loader whose strings they borrow, and the manager last.
}

char const* ModuleSymbolBank::execFileName() {
    ORV_TRACE("execFileName");
    return m_ffl->fileName();
}

char const* ModuleSymbolBank::symFileName() {
    ORV_TRACE("symFileName");
    return m_debugInfoLoader ? m_debugInfoLoader->symFileName() : m_ffl->fileName();
}

exec_format_t ModuleSymbolBank::execFileFormat() {
    ORV_TRACE("execFileFormat");
    return m_ffl->fileFormat();
}

unsigned int ModuleSymbolBank::symFileFormat() {
    ORV_TRACE("symFileFormat");
    return m_debugInfoLoader ? m_debugInfoLoader->symFileFormat() : 0;
}

arch_t ModuleSymbolBank::architecture() {
    ORV_TRACE("architecture");
    return m_ffl->architecture();
}

unsigned long long ModuleSymbolBank::preferredLoadAddress() {
    ORV_TRACE("preferredLoadAddress");
    return m_ffl->preferredLoadAddress();
}

SymMgrObjectPtr<IAddress> ModuleSymbolBank::entryPoint() {
    ORV_TRACE("entryPoint");
    SymMgrObjectPtr<IAddress> address;
    return addressByValue(m_ffl->entryPoint(), address) == status_Ok ? address : SymMgrObjectPtr<IAddress>();
}

unsigned long long ModuleSymbolBank::imageSize() {
    ORV_TRACE("imageSize");
    return m_ffl->imageSize();
}

ICompUnitDetails* ModuleSymbolBank::compUnitDetailsById(unsigned int id) {
    ORV_TRACE("compUnitDetailsById");
    ISrcLineResolver* const resolver = m_globalScope.srcLineResolver();
    return resolver != nullptr ? resolver->compUnitDetailsById(id) : nullptr;
}

status_t ModuleSymbolBank::optReports(SymMgrObjectPtr<IIterator<IOptReportEntry*>>& out,
                                      SymMgrObjectPtr<IAddress> begin, unsigned long long size) {
    return guarded([&] { return m_optReports.reports(out, begin.get(), size); });
}

status_t ModuleSymbolBank::optReportByAddress(SymMgrObjectPtr<IAddress> addr, IOptReportEntry*& out) {
    return guarded([&] { return addr ? m_optReports.reportAtAddress(addr.get(), out) : status_False; });
}

status_t ModuleSymbolBank::symbolRangeByAddress(IAddress* addr, SymMgrObjectPtr<ISymbolRange>& out, symbol_kind_t mask,
                                                ISymbolChooser* resolver) {
    ORV_TRACE("symbolRangeByAddress");
    if (addr == nullptr) {
        return status_InvalidArg;
    }
    unsigned long long const address = addr->pseudoAddr();
    ORV_TRACE_INPUT("symbolRangeByAddress", "addr->pseudoAddr()", address);
    return guarded([&] { return m_globalScope.symbolRangeByAddress(out, address, mask, resolver); });
}

status_t ModuleSymbolBank::originalSymbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, symbol_kind_t mask,
                                                IAddress* begin, IAddress* end) {
    ORV_TRACE("originalSymbolRanges");
    unsigned long long const first = begin != nullptr ? begin->pseudoAddr() : 0;
    unsigned long long const last = end != nullptr ? end->pseudoAddr() : k_highestAddress;
    ORV_TRACE_INPUT("originalSymbolRanges", "beginPseudoAddr", first);
    ORV_TRACE_INPUT("originalSymbolRanges", "endPseudoAddr", last);
    return guarded([&] { return m_globalScope.symbolRanges(out, first, last, mask); });
}

status_t ModuleSymbolBank::nonOverlappedSymbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, symbol_kind_t mask,
                                                     IAddress* begin, IAddress* end, ISymbolChooser* resolver) {
    ORV_TRACE("nonOverlappedSymbolRanges");
    unsigned long long const first = begin != nullptr ? begin->pseudoAddr() : 0;
    unsigned long long const last = end != nullptr ? end->pseudoAddr() : k_highestAddress;
    ORV_TRACE_INPUT("nonOverlappedSymbolRanges", "beginPseudoAddr", first);
    ORV_TRACE_INPUT("nonOverlappedSymbolRanges", "endPseudoAddr", last);
    return guarded([&] { return m_globalScope.nonOverlappedSymbolRanges(out, first, last, mask, resolver); });
}

status_t ModuleSymbolBank::sourceFileByName(char const* /*name*/, ISourceFile*& /*out*/) {
    ORV_TRACE("sourceFileByName");
    return status_NotImplemented;
}

status_t ModuleSymbolBank::sourceLocationByAddress(IAddress* addr, SymMgrObjectPtr<ISourceLocation>& out,
                                                   unsigned long long unit, ISourceLocationChooser* chooser) {
    ORV_TRACE("sourceLocationByAddress");
    if (addr == nullptr) {
        return status_InvalidArg;
    }
    ISrcLineResolver* const resolver = m_globalScope.srcLineResolver();
    if (resolver == nullptr) {
        out = nullptr;
        return status_False;
    }
    unsigned long long const address = addr->pseudoAddr();
    ORV_TRACE_INPUT("sourceLocationByAddress", "addr->pseudoAddr()", address);
    return guarded([&] {
        resolver->sourceLocationByAddress(out, address, unit, nullptr, chooser);
        return out ? status_Ok : status_False;
    });
}

status_t ModuleSymbolBank::sectionByName(char const* name, SymMgrObjectPtr<ISection>& out) {
    ORV_TRACE("sectionByName");
    if (name == nullptr) {
        return status_InvalidArg;
    }
    return guarded([&] {
        m_ffl->sectionByName(out, name);
        return out ? status_Ok : status_False;
    });
}

status_t ModuleSymbolBank::segments(SymMgrObjectPtr<IIterator<ISegment*>>& out) {
    ORV_TRACE("segments");
    return guarded([&] {
        m_ffl->segments(out, 0);
        return out && out->current() != nullptr ? status_Ok : status_Fail;
    });
}

status_t ModuleSymbolBank::segmentByName(char const* name, ISegment*& out) {
    ORV_TRACE("segmentByName");
    if (name == nullptr) {
        return status_InvalidArg;
    }
    out = m_ffl->segmentByName(name);
    return status_Ok;
}

status_t ModuleSymbolBank::addressByRVA(unsigned long long rva, SymMgrObjectPtr<IAddress>& out) {
    return addressByValue(m_ffl->preferredLoadAddress() + rva, out);
}

status_t ModuleSymbolBank::addressByValue(unsigned long long pseudoAddr, SymMgrObjectPtr<IAddress>& out) {
    return guarded([&] { return m_ffl->addressByValue(out, pseudoAddr); });
}

status_t ModuleSymbolBank::addressByOffset(IAddress* base, long long offset, SymMgrObjectPtr<IAddress>& out) {
    if (base == nullptr) {
        return status_InvalidArg;
    }
    // The preferred base counts although base's pseudo address holds it already: clients expect it.
    return addressByValue(m_ffl->preferredLoadAddress() + static_cast<unsigned long long>(offset) + base->pseudoAddr(),
                          out);
}

status_t ModuleSymbolBank::addressByFileOffset(unsigned long long offset, SymMgrObjectPtr<IAddress>& out) {
    return guarded([&] { return m_ffl->addressByFileOffset(out, offset); });
}

unsigned long long ModuleSymbolBank::memoryEstimate() {
    unsigned long long const symbolFile = m_debugInfoLoader ? pathFileSize(m_debugInfoLoader->symFileName()) : 0;
    return (symbolFile != 0 ? symbolFile : pathFileSize(m_ffl->fileName())) * k_memoryPerFileByte;
}

status_t ModuleSymbolBank::findStackVariable(IAddress* pc, unsigned long long address,
                                             SymMgrObjectPtr<IStackFrameContext>& context,
                                             SymMgrObjectPtr<ISymbol>& out, bool* isInteger) {
    ORV_TRACE("findStackVariable");
    if (!m_debugInfoLoader) {
        return status_False;
    }
    SymMgrObjectPtr<ISymbolRange> range;
    status_t const status = symbolRangeByAddress(pc, range, symbol_kind_Function, nullptr);
    if (status != status_Ok) {
        return status;
    }
    return guarded([&] {
        return m_debugInfoLoader->findStackVariable(range->symbol(), pc->pseudoAddr(), address, context, out,
                                                    isInteger);
    });
}

status_t ModuleSymbolBank::symbolByRanges(IRanges* ranges, SymMgrObjectPtr<ISymbol>& out, bool stopAtInline,
                                          bool acceptThunks) {
    ORV_TRACE("symbolByRanges");
    if (!ORV_ASSERT(ranges != nullptr && ranges->getCount() > 0, "ranges != 0L && ranges->getCount() > 0")) {
        return status_InvalidArg;
    }
    out = nullptr;
    unsigned long long start = 0;
    unsigned long long size = 0;
    if (!ranges->getRange(0, start, size)) {
        return status_InvalidArg;
    }
    SymMgrObjectPtr<IAddress> address;
    status_t status = addressByRVA(start, address);
    if (!ORV_ASSERT(status == status_Ok, "status == status_Ok")) {
        return status;
    }
    if (!ORV_ASSERT(address, "addr != 0L")) {
        return status_False;
    }
    SymMgrObjectPtr<ISymbolRange> range;
    status = symbolRangeByAddress(address.get(), range, k_kindsInCode, nullptr);
    if (!ORV_ASSERT(status == status_Ok, "status == status_Ok")) {
        return status;
    }
    if (!ORV_ASSERT(range, "range != 0L")) {
        return status_False;
    }
    return guarded([&] {
        // From the outermost range inward: the last symbol that covers everything is the answer.
        while (range && coversRanges(*range, *ranges, stopAtInline, acceptThunks)) {
            out = range->symbol();
            SymMgrObjectPtr<ISymbolRange> inner;
            range->innerRangeByAddress(inner, address.get());
            range = inner;
        }
        return out ? status_Ok : status_False;
    });
}

status_t ModuleSymbolBank::putPseudoAddress(unsigned long long pseudoAddr) {
    ORV_TRACE("putPseudoAddress");
    ORV_TRACE_INPUT("putPseudoAddress", "pseudoAddr", pseudoAddr);
    return guarded([&] {
        m_globalScope.addRequestedAddress(pseudoAddr);
        return status_Ok;
    });
}

status_t ModuleSymbolBank::putRVA(unsigned long long rva) {
    ORV_TRACE("putRVA");
    ORV_TRACE_INPUT("putRVA", "rva", rva);
    return putPseudoAddress(m_ffl->preferredLoadAddress() + rva);
}

} // namespace ORV_3_30
