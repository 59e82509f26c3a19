// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// dil: debug information loader. The one of a Linux kernel's list of symbols.
#pragma once

#include "lines/orv_dil.h"
#include "orv/orv_moduleimage.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ORV_3_30 {

class ElfFileLoader;
class ISymbolCallBack;
class KernelListReader;

/// The names in a list, for as long as there are symbols with them. Each load reads the list anew: a name that stands
/// where it stood is the one of before.
class KernelNames {
public:
    void beginLoad() {
        m_fresh.clear();
        m_known = 0;
    }
    /// line: the number of the name's line, which grows from call to call of a load.
    char const* keep(std::size_t line, std::string_view name);
    void finishLoad();

private:
    using Place = std::pair<std::size_t, char const*>;

    char const* copy(std::string_view name);

    std::vector<Place> m_places; ///< By line.
    std::vector<Place> m_fresh;  ///< The same, as far as the load has got.
    std::size_t m_known = 0;     ///< How many of m_places stand in front of it.
    std::vector<std::unique_ptr<char[]>> m_blocks;
    char* m_next = nullptr; ///< In the last block.
    std::size_t m_room = 0; ///< What is left of it.
};

/// A kernel's headers may be a guess: its list tells how wide addresses are and where the kernel's text begins.
/// Corrects the loader by that, and gives the architecture of the addresses. A list that can't be read corrects
/// nothing.
arch_t placeKernelByList(ElfFileLoader& loader, char const* mapFile);

/// Gives the symbols, and neither lines nor variables.
class SystemMAPDebugInfoLoader final : public DebugInfoLoader {
public:
    /// architecture: of the list's addresses.
    SystemMAPDebugInfoLoader(IFileFormatLoader* loader, std::string mapFile, arch_t architecture)
        : DebugInfoLoader(loader), m_mapFile(std::move(mapFile)), m_architecture(architecture) {}

    char const* symFileName() override { return m_mapFile.c_str(); }
    unsigned int symFileFormat() override { return symbolFormatSystemMap; }
    /// status_Ok; status_BadDebugInfo for a file that can't be opened or has a broken line, with the symbols in front
    /// of it in the table.
    status_t loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask,
                         ISrcLineResolver* resolver) override;
    ISrcLineResolver* srcLineResolver(Scope* /*scope*/, ILock* /*lock*/) override { return nullptr; }
    status_t findStackVariable(ISymbol* /*symbol*/, unsigned long long /*pc*/, unsigned long long /*address*/,
                               SymMgrObjectPtr<IStackFrameContext>& /*context*/, SymMgrObjectPtr<ISymbol>& /*out*/,
                               bool* /*isInteger*/) override {
        return status_False;
    }

private:
    status_t readSymbols(KernelListReader& list, ISymbolCallBack& symbols, AcceptedRanges* filter, unsigned int mask);

    std::string m_mapFile;
    arch_t m_architecture;
    std::mutex m_loadLock; ///< Guards m_names, for as long as a load.
    KernelNames m_names;
};

} // namespace ORV_3_30
