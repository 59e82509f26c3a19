// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The client's first object: turns the file name of a module into its bank.
///
///     SymMgrObjectPtr<ISymbolManager> manager;
///     ISymbolManager::create(manager);
///     SymMgrObjectPtr<IModuleSymbolBank> bank;
///     status_t status = manager->loadSymbolsFromModule("/bin/ls", nullptr, bank, arch_Unknown, false, "");
#pragma once

#include "orv/orv_moduleimage.h"
#include "orv/orv_modulesymbolbank.h"
#include "orv/orv_status.h"
#include "orv/orv_symbolfileresolver.h"

namespace ORV_3_30 {

/// Bits of loadFlags; others have no meaning.
enum load_flags_t : unsigned int {
    load_flags_None = 0,
    load_flags_NoDebugInfo = 2, ///< Look for no symbol file.
    load_flags_NewLoader = 4    ///< Read the module anew, and share nothing with other loads.
};

/// One for the process, shared by all who ask for it. It lives as long as a client or a bank holds
/// it. All operations may be called from any thread.
///
/// Loading the same unchanged file again gives the same bank. A file that has changed on disk gives
/// a new one, and the old one stays valid for its holders.
///
/// Statuses of the loads: status_Ok; status_InvalidArg for a null name; status_CantOpenFile;
/// status_BadFileFormat for a file that is no module or a broken one; status_OutOfMemory; otherwise
/// what the symbol file's reader returned: status_Fail for the binary of a GPU kernel, unless arch tells the family. On
/// any failure bank stays as it was.
///
/// targetName: which kernel such a binary is; other modules have no use for it, and null is no name. It does not tell
/// loads apart: while a bank of the file is held, the first kernel's comes back, and another one takes
/// load_flags_NewLoader.
class ORV_API ISymbolManager : public ISymMgrObject {
public:
    /// status_Ok; status_Fail if there is none and none can be made.
    ORV_API static status_t create(SymMgrObjectPtr<ISymbolManager>& out);

    /// addressWidth: 0 from the file, 1 a 32-bit module, any other a 64-bit one. The resolver may be
    /// null and stays the caller's. newLoader reads the module anew.
    virtual status_t loadSymbolsFromModule(char const* execFileName, ISymbolFileResolver* resolver,
                                           SymMgrObjectPtr<IModuleSymbolBank>& bank, unsigned int addressWidth,
                                           bool newLoader, char const* targetName) = 0;
    virtual status_t loadSymbolsFromModule(char const* execFileName, ISymbolFileResolver* resolver,
                                           SymMgrObjectPtr<IModuleSymbolBank>& bank, arch_t arch, bool newLoader,
                                           char const* targetName) = 0;
    /// loadFlags: bits of load_flags_t.
    virtual status_t loadSymbolsFromModuleEx(char const* execFileName, ISymbolFileResolver* resolver,
                                             SymMgrObjectPtr<IModuleSymbolBank>& bank, arch_t arch,
                                             unsigned int loadFlags, char const* targetName) = 0;

protected:
    ~ISymbolManager() = default;
};

} // namespace ORV_3_30
