// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The process-wide manager, which shares loaders and banks between loads.
///
/// Two locks: managerLock guards the singleton and counts the manager. loaderLock guards the two
/// maps, counts every bank, and is held while a loader or a bank is built and while one goes. Order:
/// loaderLock, then managerLock.
#pragma once

#include "image/orv_filekey.h"
#include "orv/orv_fileformatloader.h"
#include "orv/orv_symbolmanager.h"

#include <map>
#include <utility>

namespace ORV_3_30 {

class ModuleSymbolBank;

/// The maps hold no references: banks and loaders take themselves out when they go.
class SymbolManager final : public SymMgrObject<ISymbolManager> {
public:
    static ILock& managerLock();
    static ILock& loaderLock();
    /// The one manager, made if there is none. To be called under managerLock.
    static SymbolManager* instance();
    /// The one manager, null if there is none.
    static SymMgrObjectPtr<ISymbolManager> current();
    /// Takes a loader out of the map of the manager, if there is one.
    static void forgetLoader(IFileFormatLoader* loader);

    ~SymbolManager() override;

    status_t loadSymbolsFromModule(char const* execFileName, ISymbolFileResolver* resolver,
                                   SymMgrObjectPtr<IModuleSymbolBank>& bank, unsigned int addressWidth, bool newLoader,
                                   char const* targetName) override;
    status_t loadSymbolsFromModule(char const* execFileName, ISymbolFileResolver* resolver,
                                   SymMgrObjectPtr<IModuleSymbolBank>& bank, arch_t arch, bool newLoader,
                                   char const* targetName) override;
    status_t loadSymbolsFromModuleEx(char const* execFileName, ISymbolFileResolver* resolver,
                                     SymMgrObjectPtr<IModuleSymbolBank>& bank, arch_t arch, unsigned int loadFlags,
                                     char const* targetName) override;

    /// The load that all entries end in. May throw std::bad_alloc, which the entries turn into a
    /// status.
    status_t loadSymbolsFromModule(SymMgrObjectPtr<IModuleSymbolBank>& bank, SymMgrObjectPtr<IModuleImage> image,
                                   ISymbolFileResolver* resolver, unsigned int loadFlags, char const* targetName);
    status_t getFileLoader(SymMgrObjectPtr<IFileFormatLoader>& loader, SymMgrObjectPtr<IModuleImage> image,
                           bool newLoader, char const* targetName);
    void releaseFFL(IFileFormatLoader* loader);
    void releaseBank(IFileFormatLoader* loader, IDebugInfoLoader* debugInfoLoader);

private:
    using Pair = std::pair<IFileFormatLoader*, IDebugInfoLoader*>;

    SymbolManager();
    friend class ISymbolManager;

    status_t loadByName(char const* operation, char const* execFileName, ISymbolFileResolver* resolver,
                        SymMgrObjectPtr<IModuleSymbolBank>& bank, arch_t arch, unsigned int loadFlags,
                        char const* targetName);
    /// Success, status_False included, leaves the debug info loader in out, or null.
    status_t findDebugInfoLoader(SymMgrObjectPtr<IDebugInfoLoader>& out, IFileFormatLoader& loader,
                                 ISymbolFileResolver* resolver);

    std::map<Pair, ModuleSymbolBank*> m_banks;
    std::map<FileKey, IFileFormatLoader*> m_fileLoaders;
};

} // namespace ORV_3_30
