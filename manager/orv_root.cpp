// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The table of what lower layers call above them.
#include "format/orv_root.h"

#include "dwarf/orv_dildwarf.h"
#include "format/orv_fflelf.h"
#include "gpu/orv_dilvex.h"
#include "lines/orv_dil.h"
#include "manager/orv_symbolmanager.h"
#include "oat/orv_oat.h"
#include "resolver/orv_debug_files.h"
#include "resolver/orv_dilsystemmap.h"
#include "resolver/orv_kernel_files.h"
#include "resolver/orv_oat_file.h"
#include "resolver/orv_program_files.h"
#include "resolver/orv_split_places.h"
#include "resolver/orv_supplement_file.h"
#include "symbols/orv_symbol_call_back.h"

namespace ORV_3_30 {
namespace {

class Root final : public IRoot {
public:
    ILock& loaderLock() const override { return SymbolManager::loaderLock(); }
    void forgetLoader(IFileFormatLoader* loader) const override { SymbolManager::forgetLoader(loader); }

    std::unique_ptr<ISymbolCallBack> symbolCallBack(IFileFormatLoader* loader, ISymbolTable* table,
                                                    AcceptedRanges* filter, std::size_t expected) const override {
        return std::make_unique<RegularSymbolCallBack>(loader, table, filter, expected);
    }

    void collectDwarfFiles(FileFormatLoader::SymbolFiles& candidates, char const* moduleFile, IFileFormatHelper* helper,
                           ILock* lock) const override {
        // One that has no file to offer does not join the list.
        auto const join = [&](SymMgrObjectPtr<ISymbolFileToResolve> const& candidate) {
            if (*candidate->symbolFileName() != '\0') {
                candidates.push_back(candidate);
            }
        };
        auto const ordinal = [&] { return static_cast<long long>(candidates.size()); };
        join(SymMgrObjectPtr<ISymbolFileToResolve>(
            new DWARFBuildIdSymbolFileToResolve(moduleFile, ordinal(), helper, lock)));
        join(SymMgrObjectPtr<ISymbolFileToResolve>(new DWARFSymbolFileToResolve(moduleFile, ordinal(), helper, lock)));
        join(SymMgrObjectPtr<ISymbolFileToResolve>(new BinaryWithDWARFInfo(moduleFile, ordinal(), helper, lock)));
    }

    void collectKernelLists(FileFormatLoader::SymbolFiles& candidates, char const* kernelFile,
                            ILock* lock) const override {
        for (SystemMap::MapKind const kind : {SystemMap::map_kind_SystemMap, SystemMap::map_kind_Kallsyms}) {
            auto const ordinal = static_cast<long long>(candidates.size());
            candidates.push_back(SymMgrObjectPtr<ISymbolFileToResolve>(new SystemMap(kernelFile, kind, ordinal, lock)));
        }
    }

    IDebugInfoLoader* kernelListLoader(ElfFileLoader* loader, char const* mapFile) const override {
        arch_t const architecture = placeKernelByList(*loader, mapFile);
        return new SystemMAPDebugInfoLoader(loader, mapFile, architecture);
    }

    void collectOatFile(FileFormatLoader::SymbolFiles& candidates, char const* moduleFile) const override {
        auto const ordinal = static_cast<long long>(candidates.size());
        candidates.push_back(SymMgrObjectPtr<ISymbolFileToResolve>(new OATSymbolFileToResolve(moduleFile, ordinal)));
    }

    IDebugInfoLoader* oatLoader(IFileFormatLoader* loader, char const* symFileName, IBuffer* data,
                                OatPlace const& place) const override {
        return new OATDebugInfoLoader(loader, symFileName, SymMgrObjectPtr<IBuffer>(data), place.data, place.exec);
    }

    IDebugInfoLoader* dwarfLoader(IFileFormatLoader* loader, char const* symFileName, IFileFormatHelper* helper,
                                  unsigned long long loadBias, reading_t reading) const override {
        std::unique_ptr<ISplitFiles> splitFiles =
            reading == reading_Modern ? SplitPlaces::of(loader->fileName(), symFileName) : nullptr;
        return new DWARFDebugInfoLoader(loader, symFileName, helper, loadBias, reading, std::move(splitFiles));
    }
    SymMgrObjectPtr<IFileFormatHelper> openSupplement(IFileFormatHelper* debug, char const* debugFile,
                                                      IFileFormatLoader* module) const override {
        return openSupplementFile(*debug, debugFile, module->fileName());
    }

    void collectProgramFiles(FileFormatLoader::SymbolFiles& candidates, char const* binary, symbol_file_format_t format,
                             ILock* lock) const override {
        SymMgrObjectPtr<ISymbolFileToResolve> candidate;
        if (format == symbolFormatVexRln) {
            candidate = new VexRlnSymbolFileToResolve(binary, 0, lock);
        } else {
            candidate = new VexQdcSymbolFileToResolve(binary, 0, lock);
        }
        candidates.push_back(candidate);
    }

    IDebugInfoLoader* programFileLoader(IFileFormatLoader* loader, char const* programFile) const override {
        return new VexDebugInfoLoader(loader, programFile);
    }

    IDebugInfoLoader* emptyLoader(char const* symFileName) const override {
        return new EmptyDebugInfoLoader(symFileName);
    }
};

} // namespace

IRoot const& root() {
    static auto const& table = *new Root; // never destroyed, as a client may go on until the very end
    return table;
}

} // namespace ORV_3_30
