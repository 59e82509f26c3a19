// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Source files, places in them and compilation units, as line questions hand them out.
#pragma once

#include "orv/orv_iterator.h"
#include "orv/orv_status.h"

namespace ORV_3_30 {

/// A source file of the module. Not counted here: it belongs to the debug info loader.
class ORV_API ISourceFile {
public:
    /// Full path as the debug information gave it. The same pointer each time.
    virtual char const* path() = 0;
    /// The lines of this file in one unit (all ones: all units) between two addresses; a null start
    /// means 0, a null end all ones. True if out is null afterwards.
    virtual bool sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, unsigned long long unit,
                             IAddress* start, IAddress* end) = 0;
    /// Null where the debug information has none.
    virtual char const* checksum() = 0;
    virtual unsigned int checksumKind() = 0;
    /// As the line table had them; 0 where unknown.
    virtual unsigned long long modificationTime() = 0;
    virtual unsigned long long length() = 0;
    /// Position of the file in its resolver's list, from 0.
    virtual unsigned int id() = 0;

protected:
    ~ISourceFile() = default;
};

/// A place in a source file. May be held longer than the bank, but for the question for its file.
class ORV_API ISourceLocation : public ISymMgrObject {
public:
    /// Null where the file is not known. Lives as long as the bank.
    virtual ISourceFile* sourceFile() = 0;
    /// Key of the compilation unit.
    virtual unsigned long long unit() = 0;
    virtual unsigned int line() = 0;
    virtual unsigned int column() = 0;
    virtual unsigned long long discriminator() = 0;

protected:
    ~ISourceLocation() = default;
};

/// A place in a source file with the address range that came from it.
class ORV_API ISourceLine : public ISymMgrObject {
public:
    /// Lives as long as this line.
    virtual ISourceLocation* location() = 0;
    /// Bytes of the range; 32 bits by design, so a range above 4 GiB is cut.
    virtual unsigned int size() = 0;
    /// Start of the range.
    virtual void address(SymMgrObjectPtr<IAddress>& out) = 0;
    /// Start of the range as an RVA. While the bank lives.
    virtual unsigned long long relativeAddress() = 0;

protected:
    ~ISourceLine() = default;
};

/// A client's own choice among several locations at one address.
class ORV_API ISourceLocationChooser {
public:
    /// Stores the choice in out, which may stay null. What it returns is what ISrcLineResolver's question returns; a
    /// bank's question goes by out alone. Called while the question is asked, and not after.
    virtual status_t choose(SymMgrObjectPtr<ISourceLocation>& out,
                            IIterator<SymMgrObjectPtr<ISourceLocation>>& candidates) = 0;

protected:
    ~ISourceLocationChooser() = default;
};

/// A compilation unit (DWARF version 4, 3.1.1). Not counted: it lives as long as the bank.
class ORV_API ICompUnitDetails {
public:
    /// Key of the unit: its offset in .debug_info.
    virtual unsigned long long id() = 0;
    virtual ISourceFile* mainSourceFile() = 0;
    /// The file with exactly that path, or null.
    virtual ISourceFile* sourceFileByName(char const* name) = 0;
    /// Without content; always 0.
    virtual unsigned int reserved4() = 0;
    virtual char const* compilationDirectory() = 0;
    virtual char const* compileOptions() = 0;
    /// Null where there is none.
    virtual char const* optReportFile() = 0;
    virtual char const* compilerName() = 0;
    /// 0 if unknown.
    virtual unsigned int compilerMajorVersion() = 0;
    virtual unsigned int compilerMinorVersion() = 0;
    /// 1 Ada, 3 C and the like, 4 C++, 5 Fortran.
    virtual unsigned int language() = 0;
    /// Without content; always null.
    virtual void* reserved12() = 0;

protected:
    ~ICompUnitDetails() = default;
};

} // namespace ORV_3_30
