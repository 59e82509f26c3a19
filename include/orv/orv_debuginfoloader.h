// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The two interfaces behind which every debug information format stands, and the line table.
#pragma once

#include "orv/orv_iterator.h"
#include "orv/orv_source.h"
#include "orv/orv_status.h"

namespace ORV_3_30 {

class AcceptedRanges;
class Scope;

/// Everything that has to do with source lines in one module. Made and owned by a debug info loader.
/// A unit key of all ones means all units, a file id of all ones all files.
class ORV_API ISrcLineResolver : public ISymMgrObject {
public:
    virtual ~ISrcLineResolver() = default;
    /// The line that starts latest among those at an address, or the chooser's choice.
    virtual status_t sourceLocationByAddress(SymMgrObjectPtr<ISourceLocation>& out, unsigned long long address,
                                             unsigned long long unit, Scope* scope,
                                             ISourceLocationChooser* chooser) = 0;
    /// The lines in [start, end); start equal to end asks for one address.
    virtual status_t sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, unsigned long long unit,
                                 unsigned int fileId, unsigned long long start, unsigned long long end,
                                 Scope* scope) = 0;
    /// Those that line programs have named so far: 0 before the first question for lines, or for the files of a unit.
    /// Always 0 for OAT, whose files are found by the ids that lines have, and for GPU kernels, which have none.
    virtual unsigned int sourceFileCount() = 0;
    /// Null for an id that no file has.
    virtual ISourceFile* sourceFileById(unsigned int id) = 0;
    /// Null for an id that is no unit's, and before a question for symbols or lines has read the units.
    virtual ICompUnitDetails* compUnitDetailsById(unsigned long long id) = 0;
    /// Told when a client asks for an address in advance, and when its wishes are dropped.
    virtual status_t addressRequested(unsigned long long address) = 0;
    virtual status_t requestsCleared() = 0;
};

/// Reader of one debug information format for one module. A format fills the module's symbol table
/// and owns a line resolver, or has none. It must not outlive the file format loader that made it, nor a
/// table that it has filled outlive either.
class ORV_API IDebugInfoLoader : public ISymMgrObject {
public:
    /// The file that the debug information comes from. Lives as long as the loader.
    virtual char const* symFileName() = 0;
    /// 1 DWARF, 4 kernel symbol list, 5 OAT, 6 and 7 the GPU formats, 0 none.
    virtual unsigned int symFileFormat() = 0;
    /// Puts the symbols of the kinds in mask into the table, restricted to what filter accepts. The one of a GPU kernel
    /// goes there whatever they are.
    virtual status_t loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask,
                                 ISrcLineResolver* resolver) = 0;
    /// The same object on each call, owned by the loader; null where the format has none.
    virtual ISrcLineResolver* srcLineResolver(Scope* scope, ILock* lock) = 0;
    /// The variable of a function that owns a stack address. status_Ok; status_False if there is none;
    /// status_InvalidArg for a null context; status_NoDebugInfo; status_Fail for a symbol that is no function of this
    /// loader's, or does not hold pc.
    virtual status_t findStackVariable(ISymbol* symbol, unsigned long long pc, unsigned long long address,
                                       SymMgrObjectPtr<IStackFrameContext>& context, SymMgrObjectPtr<ISymbol>& out,
                                       bool* isInteger) = 0;
    /// A section of the symbol file, or null.
    virtual void sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int index) = 0;

protected:
    ~IDebugInfoLoader() = default;
};

/// The store of address to line knowledge of one module.
///
/// Addresses are pseudo addresses, ranges half open. A unit of all ones in a question means all units,
/// a file id of all ones all files. The rows come out by file id, then unit, then start, line and
/// column; of rows that agree in all of these the one added last is first. A row of size 0 holds no
/// address; a question for a stretch that begins below it gives it. Adding and asking at the same time
/// belongs to one thread; threads that only ask may do so together.
class ORV_API ILineTable : public ISymMgrObject {
public:
    /// An empty table. Its count has no lock. Both must outlive the table and its iterators: lines make
    /// their addresses on the loader, and take their files from the resolver.
    ORV_API static SymMgrObjectPtr<ILineTable> create(IFileFormatLoader& loader, ISrcLineResolver& resolver);

    virtual ~ILineTable() = default;
    /// The rows over one address, each with its own start and end. Never null; without rows the
    /// iterator is empty.
    virtual void sourceLinesByAddress(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out,
                                      unsigned long long address, unsigned long long unit, unsigned int fileId) = 0;
    /// The rows in [start, end), cut to it; start equal to end asks for the one byte at start. Never
    /// null.
    virtual void sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, unsigned long long unit,
                             unsigned int fileId, unsigned long long start, unsigned long long end) = 0;
    /// Adds a row over [address, address + size), size in bytes.
    virtual void addLine(unsigned long long unit, unsigned int fileId, unsigned int line, unsigned int column,
                         unsigned long long address, unsigned long long size, unsigned long long discriminator) = 0;
};

} // namespace ORV_3_30
