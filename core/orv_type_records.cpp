// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The run-time type records of all interfaces that clients meet, in one place: those whose
/// implementation is elsewhere too, so that a client's type tests agree with the library's.

#include "orv/orv.h"

#include <typeinfo>

namespace ORV_3_30 {

namespace {

template <typename... Types> struct Records {
    static inline std::type_info const* const all[] = {&typeid(Types)...};
};

template <typename T> using Iterator = IIterator<SymMgrObjectPtr<T>>;

using Interfaces =
    Records<ISymMgrObject, ISymbolManager, IModuleSymbolBank, IPrefetcher, IModuleImage, IFileFormatLoader, IAddress,
            IBuffer, ISection, ISegment, IScope, ISymbolTable, ISymbol, IThunk, IInlineInstance, ISymbolChooser,
            ISymbolRange, IRanges, ISourceFile, ISourceLine, ISourceLocation, ISourceLocationChooser, ICompUnitDetails,
            ISrcLineResolver, IDebugInfoLoader, ILineTable, IStackFrameContext, IOptReportEntry, ISymbolFileToResolve,
            ISymbolFileResolver, Iterator<ISymbol>, Iterator<ISymbolRange>, Iterator<ISourceLine>,
            Iterator<ISourceLocation>, Iterator<ISection>, Iterator<ISymbolFileToResolve>, IIterator<ISegment*>,
            IIterator<IOptReportEntry*>>;

} // namespace

/// Keeps the records in the library.
std::type_info const* const* interfaceTypeRecords() { return Interfaces::all; }

} // namespace ORV_3_30
