// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What a file format knows of a module: its layout, its bytes, its raw symbols and the files that
/// may hold its debug information.
#pragma once

#include "orv/orv_address.h"
#include "orv/orv_debuginfoloader.h"
#include "orv/orv_moduleimage.h"
#include "orv/orv_scope.h"
#include "orv/orv_section.h"
#include "orv/orv_symbolfileresolver.h"

namespace ORV_3_30 {

/// Addresses are pseudo addresses unless stated; offsets and sizes are bytes. Segments and strings
/// belong to the loader; sections and addresses are counted and must not outlive it.
class ORV_API IFileFormatLoader : public ISymMgrObject {
public:
    /// Picks the loader by the image's first bytes; a file that is no ELF file and whose name holds ".clbin" is a GPU
    /// kernel's binary. status_Ok, or the loader's own status, with the loader in out. If no format fits out stays as
    /// it was: status_BadFileFormat if it is null, else the status of the loader in it. targetName: the kernel that a
    /// GPU binary is, as its program file names it; null is no name.
    ORV_API static status_t create(SymMgrObjectPtr<IFileFormatLoader>& out, SymMgrObjectPtr<IModuleImage> image,
                                   char const* targetName);

    /// The candidates for the module's symbol files in order of preference. Neither they nor the iterator
    /// must outlive the loader. status_Ok, or a failure with out untouched: status_Fail for a GPU binary whose family
    /// was not given.
    virtual status_t symbolFiles(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>& out) = 0;
    /// The reader for a candidate. status_Ok, with null where none can be made; status_False for an
    /// index outside the list, out untouched.
    virtual status_t debugInfoLoader(SymMgrObjectPtr<IDebugInfoLoader>& out, long long index, unsigned int flags) = 0;
    /// Path of the module as given.
    virtual char const* fileName() = 0;
    virtual exec_format_t fileFormat() = 0;
    virtual arch_t architecture() = 0;
    /// The image base that pseudo addresses are laid out from.
    ///
    /// A relocatable file has no addresses. Under the modern reading (orv_reading.h) it is 0x10000000, and each section
    /// that would be loaded has a place of its own from there on: in the order of the file, with its alignment and at
    /// least 16, apart from the one before. segments and sections show them; a place in a section is its address and
    /// the offset in it. Under the classic one it is where .text stands, mostly 0, and sections lie over each other.
    virtual unsigned long long preferredLoadAddress() = 0;
    virtual unsigned long long entryPoint() = 0;
    virtual unsigned long long imageSize() = 0;
    /// Adds the raw symbols of the kinds in mask that filter accepts; a null filter accepts all. The
    /// one of a GPU kernel's binary is added whatever they are.
    /// status_Ok, or status_Fail on a loader whose construction failed.
    virtual status_t loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask) = 0;
    /// Result of construction: status_Ok or status_BadFileFormat.
    virtual status_t status() = 0;
    /// The segment that holds an address, its end included; null if there is none.
    virtual ISegment* segmentByAddress(unsigned long long address) = 0;
    /// Segments in address order; null past the last.
    virtual ISegment* segmentByIndex(unsigned int index) = 0;
    /// The segment that holds a file position, or else ends there; null if there is none.
    virtual ISegment* segmentByFileOffset(unsigned long long offset) = 0;
    /// The section that holds an address, its end included; null if there is none. It belongs to the
    /// loader. Its file offset is its address: only the lookups by name and index know the real one.
    virtual ISection* sectionByAddress(unsigned long long address) = 0;
    /// A fresh read from the file on disk. status_Ok; status_False if the file is too short;
    /// status_OutOfMemory.
    virtual status_t readBytes(unsigned long long offset, unsigned long long size, SymMgrObjectPtr<IBuffer>& out) = 0;
    /// status_Ok; status_Fail for an address in no segment and no section, out untouched.
    virtual status_t addressByValue(SymMgrObjectPtr<IAddress>& out, unsigned long long address) = 0;
    /// status_Ok; status_Fail for a position in no segment, out untouched.
    virtual status_t addressByFileOffset(SymMgrObjectPtr<IAddress>& out, unsigned long long offset) = 0;
    /// All segments in address order. The filter is kept and selects nothing.
    virtual void segments(SymMgrObjectPtr<IIterator<ISegment*>>& out, unsigned int filter) = 0;
    /// The first segment of that name, or null.
    virtual ISegment* segmentByName(char const* name) = 0;
    /// The first section of that name, or null.
    virtual void sectionByName(SymMgrObjectPtr<ISection>& out, char const* name) = 0;
    /// Null past the last section.
    virtual void sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int index) = 0;
    /// What create was given where the format keeps it, else the empty string.
    virtual char const* targetName() = 0;

protected:
    ~IFileFormatLoader() = default;
};

} // namespace ORV_3_30
