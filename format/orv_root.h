// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What the loaders of modules need of the layers above them, which they do not know.
#pragma once

#include "format/orv_ffl.h"
#include "format/orv_raw_symbol.h"

#include <memory>

namespace ORV_3_30 {

class ElfFileLoader;
struct OatPlace;

/// Filled in by the root of the library, and the same for all loaders.
class IRoot {
public:
    /// Held while a loader or a bank is built or goes.
    virtual ILock& loaderLock() const = 0;
    /// A loader is on its way out.
    virtual void forgetLoader(IFileFormatLoader* loader) const = 0;
    /// Who puts raw symbols into a table. expected: no more than so many will come.
    virtual std::unique_ptr<ISymbolCallBack> symbolCallBack(IFileFormatLoader* loader, ISymbolTable* table,
                                                            AcceptedRanges* filter, std::size_t expected) const = 0;
    /// The files that may hold the debug information of a module.
    virtual void collectDwarfFiles(FileFormatLoader::SymbolFiles& candidates, char const* moduleFile,
                                   IFileFormatHelper* helper, ILock* lock) const = 0;
    /// The lists of symbols that may stand beside a kernel.
    virtual void collectKernelLists(FileFormatLoader::SymbolFiles& candidates, char const* kernelFile,
                                    ILock* lock) const = 0;
    /// The reader of a kernel's list of symbols, which may correct where the loader has the kernel.
    virtual IDebugInfoLoader* kernelListLoader(ElfFileLoader* loader, char const* mapFile) const = 0;
    /// The OAT file that a module is.
    virtual void collectOatFile(FileFormatLoader::SymbolFiles& candidates, char const* moduleFile) const = 0;
    /// The reader of OAT data.
    virtual IDebugInfoLoader* oatLoader(IFileFormatLoader* loader, char const* symFileName, IBuffer* data,
                                        OatPlace const& place) const = 0;
    /// The reader of a file's DWARF; loadBias: what is added to its addresses to get the module's.
    virtual IDebugInfoLoader* dwarfLoader(IFileFormatLoader* loader, char const* symFileName, IFileFormatHelper* helper,
                                          unsigned long long loadBias, reading_t reading) const = 0;
    /// The supplementary file that a file with DWARF names; null if there is none with its id.
    virtual SymMgrObjectPtr<IFileFormatHelper> openSupplement(IFileFormatHelper* debug, char const* debugFile,
                                                              IFileFormatLoader* module) const = 0;
    /// The program file that may stand beside the binary of a GPU kernel; format: that of the family's compiler.
    virtual void collectProgramFiles(FileFormatLoader::SymbolFiles& candidates, char const* binary,
                                     symbol_file_format_t format, ILock* lock) const = 0;
    /// The reader of a GPU program file.
    virtual IDebugInfoLoader* programFileLoader(IFileFormatLoader* loader, char const* programFile) const = 0;
    /// One that reports a file's name, and loads nothing.
    virtual IDebugInfoLoader* emptyLoader(char const* symFileName) const = 0;

protected:
    ~IRoot() = default;
};

/// Defined by the manager.
IRoot const& root();

} // namespace ORV_3_30
