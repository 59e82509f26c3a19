// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Two maps, of loaders by file and of banks by loaders, without references of their own.
#include "manager/orv_symbolmanager.h"

#include "format/orv_ffl.h"

#include "core/orv_trace.h"
#include "image/orv_path.h"
#include "manager/orv_modulesymbolbank.h"
#include "resolver/orv_symbolfileresolver.h"

#include <cstring>
#include <new>
#include <string>

namespace ORV_3_30 {
namespace {

/// Raw, without a reference. Guarded by managerLock.
SymbolManager* g_singleton = nullptr;

// A kernel that is not on the disk has no file to open; its name alone lets it through. By design
// this looks at how the name begins, and not at its last component.
constexpr char k_kernelPrefix[] = "vmlinu";

arch_t archOfAddressWidth(unsigned int addressWidth) {
    switch (addressWidth) {
    case 0: return arch_Unknown;
    case 1: return arch_X86;
    default: return arch_X86_64;
    }
}

} // namespace

// Never destroyed: a client may drop its last bank while the process exits.
ILock& SymbolManager::managerLock() {
    static ILock& lock = *new OrvLock;
    return lock;
}

ILock& SymbolManager::loaderLock() {
    static ILock& lock = *new OrvLock;
    return lock;
}

status_t ISymbolManager::create(SymMgrObjectPtr<ISymbolManager>& out) {
    LockGuard guard(&SymbolManager::managerLock());
    ORV_TRACE("create");
    out = SymbolManager::instance();
    if (!out) {
        ORV_ERROR("can't instantiate ISymbolManager object\n");
        return status_Fail;
    }
    return status_Ok;
}

SymbolManager* SymbolManager::instance() {
    if (g_singleton == nullptr) {
        g_singleton = new SymbolManager;
    }
    return g_singleton;
}

SymMgrObjectPtr<ISymbolManager> SymbolManager::current() {
    LockGuard guard(&managerLock());
    return SymMgrObjectPtr<ISymbolManager>(g_singleton);
}

void SymbolManager::forgetLoader(IFileFormatLoader* loader) {
    LockGuard loaders(&loaderLock());
    LockGuard manager(&managerLock());
    if (g_singleton != nullptr) {
        g_singleton->releaseFFL(loader);
    }
}

SymbolManager::SymbolManager() : SymMgrObject(&managerLock()) { ORV_TRACE("SymbolManager"); }

SymbolManager::~SymbolManager() {
    LockGuard guard(&managerLock());
    g_singleton = nullptr;
}

status_t SymbolManager::loadSymbolsFromModule(char const* execFileName, ISymbolFileResolver* resolver,
                                              SymMgrObjectPtr<IModuleSymbolBank>& bank, unsigned int addressWidth,
                                              bool newLoader, char const* targetName) {
    ORV_TRACE("loadSymbolsFromModule");
    return loadSymbolsFromModule(execFileName, resolver, bank, archOfAddressWidth(addressWidth), newLoader, targetName);
}

status_t SymbolManager::loadSymbolsFromModule(char const* execFileName, ISymbolFileResolver* resolver,
                                              SymMgrObjectPtr<IModuleSymbolBank>& bank, arch_t arch, bool newLoader,
                                              char const* targetName) {
    ORV_TRACE("loadSymbolsFromModule");
    return loadByName("loadSymbolsFromModule", execFileName, resolver, bank, arch,
                      newLoader ? load_flags_NewLoader : load_flags_None, targetName);
}

status_t SymbolManager::loadSymbolsFromModuleEx(char const* execFileName, ISymbolFileResolver* resolver,
                                                SymMgrObjectPtr<IModuleSymbolBank>& bank, arch_t arch,
                                                unsigned int loadFlags, char const* targetName) {
    ORV_TRACE("loadSymbolsFromModuleEx");
    return loadByName("loadSymbolsFromModuleEx", execFileName, resolver, bank, arch, loadFlags, targetName);
}

status_t SymbolManager::loadByName(char const* operation, char const* execFileName, ISymbolFileResolver* resolver,
                                   SymMgrObjectPtr<IModuleSymbolBank>& bank, arch_t arch, unsigned int loadFlags,
                                   char const* targetName) {
    if (execFileName == nullptr) {
        return status_InvalidArg;
    }
    ORV_TRACE_INPUT(operation, "execFileName", execFileName);
    try {
        return loadSymbolsFromModule(bank, IModuleImage::create(execFileName, arch, false), resolver, loadFlags,
                                     targetName);
    } catch (std::bad_alloc const&) {
        ORV_ERROR("Out of memory");
        return status_OutOfMemory;
    }
}

status_t SymbolManager::loadSymbolsFromModule(SymMgrObjectPtr<IModuleSymbolBank>& bank,
                                              SymMgrObjectPtr<IModuleImage> image, ISymbolFileResolver* resolver,
                                              unsigned int loadFlags, char const* targetName) {
    ORV_TRACE("loadSymbolsFromModule");
    SymMgrObjectPtr<IFileFormatLoader> loader;
    status_t status = getFileLoader(loader, std::move(image), (loadFlags & load_flags_NewLoader) != 0, targetName);
    if (status != status_Ok) {
        return status;
    }
    SymMgrObjectPtr<IDebugInfoLoader> debugInfoLoader;
    if ((loadFlags & load_flags_NoDebugInfo) == 0) {
        status = findDebugInfoLoader(debugInfoLoader, *loader, resolver);
        if (failed(status)) {
            return status;
        }
    }
    LockGuard guard(&loaderLock());
    Pair const key(loader.get(), debugInfoLoader.get());
    auto const found = m_banks.find(key);
    if (found != m_banks.end()) {
        bank = found->second;
        return status_Ok;
    }
    SymMgrObjectPtr<ModuleSymbolBank> const fresh(
        new ModuleSymbolBank(loader.get(), debugInfoLoader.get(), &loaderLock()));
    m_banks.emplace(key, fresh.get());
    bank = fresh.get();
    return status_Ok;
}

status_t SymbolManager::findDebugInfoLoader(SymMgrObjectPtr<IDebugInfoLoader>& out, IFileFormatLoader& loader,
                                            ISymbolFileResolver* resolver) {
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
    status_t const status = loader.symbolFiles(candidates);
    if (status != status_Ok) {
        return status;
    }
    SymbolFileResolver defaultResolver;
    long long index = -1;
    if (candidates && candidates->current()) {
        index = (resolver != nullptr ? *resolver : defaultResolver).resolveSymbolFile(candidates);
    }
    LockGuard guard(&loaderLock());
    return loader.debugInfoLoader(out, index, 0);
}

status_t SymbolManager::getFileLoader(SymMgrObjectPtr<IFileFormatLoader>& loader, SymMgrObjectPtr<IModuleImage> image,
                                      bool newLoader, char const* targetName) {
    ORV_TRACE("getFileLoader");
    if (!image) {
        ORV_ERROR("Module Image is NULL\n");
        return status_InvalidArg;
    }
    char const* const name = image->fileName();
    if (name == nullptr ||
        (!fileExists(name) && std::strncmp(name, k_kernelPrefix, std::strlen(k_kernelPrefix)) != 0)) {
        ORV_ERROR("could not open file\n");
        return status_CantOpenFile;
    }
    if (newLoader) {
        return IFileFormatLoader::create(loader, image, targetName);
    }
    std::string path;
    fullPath(path, name, false);
    reading_t const wanted = reading();
    FileKey const key(path.c_str(), image->imageOffset(), image->architecture(), wanted);
    LockGuard guard(&loaderLock());
    auto const found = m_fileLoaders.find(key);
    if (found != m_fileLoaders.end()) {
        loader = found->second;
    }
    if (!loader) {
        status_t const status = IFileFormatLoader::create(loader, image, targetName);
        if (status != status_Ok) {
            return status;
        }
        auto const* const own = dynamic_cast<FileFormatLoader*>(loader.get());
        if (own != nullptr && own->reading() == wanted) { // nobody has set another one meanwhile
            m_fileLoaders[key] = loader.get();
        }
    }
    return loader ? status_Ok : status_BadFileFormat;
}

void SymbolManager::releaseFFL(IFileFormatLoader* loader) {
    ORV_TRACE("releaseFFL");
    LockGuard guard(&loaderLock());
    for (auto entry = m_fileLoaders.begin(); entry != m_fileLoaders.end(); ++entry) {
        if (entry->second == loader) {
            m_fileLoaders.erase(entry);
            break;
        }
    }
}

void SymbolManager::releaseBank(IFileFormatLoader* loader, IDebugInfoLoader* debugInfoLoader) {
    LockGuard guard(&loaderLock());
    m_banks.erase(Pair(loader, debugInfoLoader));
}

} // namespace ORV_3_30
