// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// All questions about one module.
///
///     SymMgrObjectPtr<IAddress> address;
///     bank->addressByFileOffset(pc - map.start + map.offset, address); // map: the line of /proc/self/maps
///     SymMgrObjectPtr<ISymbolRange> range;
///     status_t status = bank->symbolRangeByAddress(address.get(), range, symbol_kind_Function, nullptr);
///     if (failed(status)) // said once
///         status = bank->symbolRangeByAddress(address.get(), range, symbol_kind_Function, nullptr);
///     if (status == status_Ok)
///         std::puts(range->symbol()->demangledName(0));
#pragma once

#include "orv/orv_address.h"
#include "orv/orv_moduleimage.h"
#include "orv/orv_optreport.h"
#include "orv/orv_section.h"
#include "orv/orv_source.h"
#include "orv/orv_stackframe.h"
#include "orv/orv_symbol.h"
#include "orv/orv_symbolfileresolver.h"
#include "orv/orv_symbolrange.h"

namespace ORV_3_30 {

/// Tells a bank ahead of its queries which addresses they will be about. The next query loads again,
/// restricted to the symbols round those addresses. What is not loaded takes no part: a symbol that would have changed
/// another's name or end may be missing, and if the first question for lines comes after, lines of other places are
/// missing for good.
class ORV_API IPrefetcher {
public:
    /// status_Ok.
    virtual status_t putPseudoAddress(unsigned long long pseudoAddr) = 0;
    /// status_Ok.
    virtual status_t putRVA(unsigned long long rva) = 0;

protected:
    ~IPrefetcher() = default;
};

/// The bank of one module. It may be shared between threads; what it hands out belongs to one thread
/// at a time. Counted results are new objects for the caller. Plain pointers and strings belong to
/// the bank. Nothing that it hands out may be used after the bank is gone.
///
/// Symbols are read on the first query that needs their kind. A failure of that load is what the
/// query returns, once: debug information that can't be read (status_UnsupportedFileVersion for a DWARF version above
/// 4, today's default of compilers) is dropped, and from the next query on ELF symbols answer. Every query that
/// allocates may return status_OutOfMemory.
class ORV_API IModuleSymbolBank : public ISymMgrObject {
public:
    /// The bank of an image that the client made. The statuses of ISymbolManager's loads.
    ORV_API static status_t create(SymMgrObjectPtr<IModuleSymbolBank>& bank, SymMgrObjectPtr<IModuleImage> image,
                                   ISymbolFileResolver* resolver, bool newLoader, char const* targetName);

    /// The module's file.
    virtual char const* execFileName() = 0;
    /// The file that the symbols come from; the module's file where there is no other.
    virtual char const* symFileName() = 0;
    virtual exec_format_t execFileFormat() = 0;
    /// 1 DWARF, 4 kernel symbol list, 5 OAT, 6 and 7 the GPU formats, 0 none.
    virtual unsigned int symFileFormat() = 0;
    virtual arch_t architecture() = 0;
    /// The base that RVAs count from, a pseudo address.
    virtual unsigned long long preferredLoadAddress() = 0;
    /// Null where it lies in no segment and no section.
    virtual SymMgrObjectPtr<IAddress> entryPoint() = 0;
    /// Bytes of the first loaded segment.
    virtual unsigned long long imageSize() = 0;
    /// The unit of that id, or null; null for each before a question for symbols or lines has read the units.
    virtual ICompUnitDetails* compUnitDetailsById(unsigned int id) = 0;
    /// status_NotImplemented.
    virtual status_t notImplementedQuery() = 0;
    /// The optimisation remarks from begin up to size bytes on, in the order of addresses; a null begin means all. The
    /// first question reads them; the iterator keeps them. Its reset leads to the first of all, not of the range.
    /// status_Ok; status_False if there are none.
    virtual status_t optReports(SymMgrObjectPtr<IIterator<IOptReportEntry*>>& out, SymMgrObjectPtr<IAddress> begin,
                                unsigned long long size) = 0;
    /// The remark at exactly that address, of several the first. status_Ok; status_False if there is none.
    virtual status_t optReportByAddress(SymMgrObjectPtr<IAddress> addr, IOptReportEntry*& out) = 0;
    /// The range of the symbol that wins at an address among the kinds in mask. With two or more
    /// symbols there, a resolver that is not null chooses. status_Ok; status_False with a null out if
    /// nothing is there; status_InvalidArg for a null addr, out untouched.
    virtual status_t symbolRangeByAddress(IAddress* addr, SymMgrObjectPtr<ISymbolRange>& out, symbol_kind_t mask,
                                          ISymbolChooser* resolver) = 0;
    /// All ranges that touch [begin, end), overlaps included, by start, then longest first. A null
    /// begin means 0, a null end all ones. Mask 0: the kinds loaded so far. status_Ok; status_False
    /// with a null out if there are none.
    virtual status_t originalSymbolRanges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out,
                                          symbol_kind_t mask, IAddress* begin, IAddress* end) = 0;
    /// The same stretch cut into pieces with one winner each, gaps left out.
    virtual status_t nonOverlappedSymbolRanges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out,
                                               symbol_kind_t mask, IAddress* begin, IAddress* end,
                                               ISymbolChooser* resolver) = 0;
    /// status_NotImplemented, out untouched.
    virtual status_t sourceFileByName(char const* name, ISourceFile*& out) = 0;
    /// The source location of an address, in one unit or, with all ones, in all. status_Ok;
    /// status_False with a null out if there is none; status_InvalidArg for a null addr.
    virtual status_t sourceLocationByAddress(IAddress* addr, SymMgrObjectPtr<ISourceLocation>& out,
                                             unsigned long long unit, ISourceLocationChooser* chooser) = 0;
    /// status_Ok; status_False with a null out; status_InvalidArg for a null name.
    virtual status_t sectionByName(char const* name, SymMgrObjectPtr<ISection>& out) = 0;
    /// All segments in address order. status_Ok; status_Fail if there are none.
    virtual status_t segments(SymMgrObjectPtr<IIterator<ISegment*>>& out) = 0;
    /// status_Ok, with null for an unknown name; status_InvalidArg for a null name.
    virtual status_t segmentByName(char const* name, ISegment*& out) = 0;
    /// The address at preferredLoadAddress + rva. status_Ok; status_Fail for a place in no segment
    /// and no section, out untouched.
    virtual status_t addressByRVA(unsigned long long rva, SymMgrObjectPtr<IAddress>& out) = 0;
    /// The address of a pseudo address; the statuses of addressByRVA.
    virtual status_t addressByValue(unsigned long long pseudoAddr, SymMgrObjectPtr<IAddress>& out) = 0;
    /// The address at preferredLoadAddress + offset + base's pseudo address: for a module whose
    /// preferred load address is not 0, base is to be given less that address. The statuses of
    /// addressByRVA; status_InvalidArg for a null base.
    virtual status_t addressByOffset(IAddress* base, long long offset, SymMgrObjectPtr<IAddress>& out) = 0;
    /// The address that a position in the file, in bytes, is loaded to; the statuses of addressByRVA.
    virtual status_t addressByFileOffset(unsigned long long offset, SymMgrObjectPtr<IAddress>& out) = 0;
    /// Bytes of memory that the symbols may come to need: eight times the symbol file's size.
    virtual unsigned long long memoryEstimate() = 0;
    /// The bank's own prefetcher; it belongs to the bank.
    virtual IPrefetcher* prefetcher() = 0;
    /// The local variable of the function at pc that owns a stack address. pc is a pseudo address of the module,
    /// address one of the running program, and context says where the frame lies (IStackFrameContext). The symbol has
    /// the variable's name, with "::" and the member's behind it in a structure, and the variable's declaration; it has
    /// no address and no ranges, and lives as long as the client holds it. isInteger, which may be null, says whether
    /// the variable's type is an int or short: a structure's never is, whatever the member.
    ///
    /// Answers for neighbouring addresses of one variable, in one frame, are the same symbol.
    ///
    /// Formal parameters are not looked at, nor, with the classic reading, blocks told apart: of variables that share a
    /// place the first in the debug information is taken. A variable of unknown size, as arrays whose bounds are not in
    /// signed form, has its first byte. Answers are kept by both registers and address, whatever pc is.
    ///
    /// With the modern reading blocks that pc is not in are passed over, bounds count in whatever form they are,
    /// members of bases and of parts without a name are like the structure's own, a const, volatile or atomic integer
    /// is one, and answers are kept by pc too.
    ///
    /// status_Ok; status_False if there is none, and without debug information or a function at pc; status_InvalidArg
    /// for a null pc or context; status_NoDebugInfo; status_Fail for a function that the debug information does not
    /// have or gives no single range.
    virtual status_t findStackVariable(IAddress* pc, unsigned long long address,
                                       SymMgrObjectPtr<IStackFrameContext>& context, SymMgrObjectPtr<ISymbol>& out,
                                       bool* isInteger) = 0;
    /// The innermost symbol whose ranges cover all the given stretches (RVA and size). status_Ok;
    /// status_False with a null out; status_InvalidArg for null or empty ranges; status_Fail if the
    /// first stretch starts in no segment and no section.
    virtual status_t symbolByRanges(IRanges* ranges, SymMgrObjectPtr<ISymbol>& out, bool stopAtInline,
                                    bool acceptThunks) = 0;

protected:
    ~IModuleSymbolBank() = default;
};

} // namespace ORV_3_30
