// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// dil: debug information loader. Reads a kernel's list of symbols: its front at once, for what it tells of the kernel's
// place, and all of it for each load.
#include "resolver/orv_dilsystemmap.h"

#include "format/orv_fflelf.h"
#include "format/orv_root.h"
#include "resolver/orv_kernel_list.h"
#include "symbols/orv_accepted_ranges.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace ORV_3_30 {
namespace {

constexpr std::size_t k_scanBuffer = 4096;
constexpr std::size_t k_loadBuffer = std::size_t{1} << 21;
constexpr std::size_t k_nameBlock = std::size_t{1} << 16;
constexpr unsigned long long k_kernelBase = 0xFFFFFFFF80000000; // of x86-64
constexpr unsigned long long k_kernelSize = 0x7FFFFFFF;

/// False for a type of no interest.
bool readType(char type, RawSymbol& out) {
    switch (type) {
    case 'T':
    case 't':
        out.kind = symbol_kind_Function;
        out.visibility = symbol_visibility_Local;
        return true;
    case 'D':
    case 'd':
        out.kind = symbol_kind_Data;
        out.visibility = symbol_visibility_Local;
        return true;
    case 'G':
    case 'g':
        out.kind = symbol_kind_Other;
        out.visibility = symbol_visibility_Global;
        return true;
    default: return false;
    }
}

} // namespace

char const* KernelNames::keep(std::size_t line, std::string_view name) {
    while (m_known < m_places.size() && m_places[m_known].first < line) {
        m_fresh.push_back(m_places[m_known++]);
    }
    bool const isKnown = m_known < m_places.size() && m_places[m_known].first == line;
    char const* const known = isKnown ? m_places[m_known++].second : nullptr;
    m_fresh.emplace_back(line, known != nullptr && name == known ? known : copy(name));
    return m_fresh.back().second;
}

void KernelNames::finishLoad() {
    m_fresh.insert(m_fresh.end(), m_places.begin() + static_cast<std::ptrdiff_t>(m_known), m_places.end());
    m_places.swap(m_fresh);
    m_fresh = {};
}

char const* KernelNames::copy(std::string_view name) {
    std::size_t const size = name.size() + 1;
    if (size > m_room) {
        std::size_t const blockSize = std::max(size, k_nameBlock);
        m_blocks.push_back(std::make_unique<char[]>(blockSize));
        m_next = m_blocks.back().get();
        m_room = blockSize;
    }
    char* const place = m_next;
    std::memcpy(place, name.data(), name.size()); // blocks are zeroed
    m_next += size;
    m_room -= size;
    return place;
}

arch_t placeKernelByList(ElfFileLoader& loader, char const* mapFile) {
    KernelListReader list(mapFile, k_scanBuffer);
    ElfHelper& helper = loader.helper();
    arch_t architecture = helper.architecture();
    if (!list.isOpen()) {
        return architecture;
    }
    unsigned long long base = helper.getImageBase();
    unsigned long long size = helper.imageSize();
    KernelListLine line;
    while (!list.isAtEnd() && line.address <= base) {
        if (!list.readAddress(architecture == arch_X86_64, line.address) || !list.readSymbol(line)) {
            break;
        }
        // More digits where the type should be: the rest of the line is still to come.
        if (architecture != arch_X86_64 && std::isdigit(static_cast<unsigned char>(line.type)) != 0) {
            architecture = arch_X86_64;
            base = k_kernelBase;
            size = k_kernelSize;
            if (!list.readSymbol(line)) {
                break;
            }
            loader.addLate(".text_", k_kernelBase, k_kernelSize);
        }
        bool const isText = line.type == 'A' || line.type == 'T' || line.type == 't';
        if (isText && line.address >= base) {
            size += base - line.address;
            base = line.address;
            break;
        }
        if (list.isOfModule()) {
            break;
        }
        list.finishLine();
    }
    helper.moveImage(base, size); // at once: others may be asking
    return architecture;
}

status_t SystemMAPDebugInfoLoader::loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask,
                                               ISrcLineResolver* /*resolver*/) {
    std::lock_guard<std::mutex> const guard(m_loadLock);
    KernelListReader list(m_mapFile.c_str(), k_loadBuffer);
    if (!list.isOpen()) {
        return status_BadDebugInfo;
    }
    m_names.beginLoad();
    // Whoever is asked twice whether a range is wanted may change his mind, so only one of us asks.
    std::unique_ptr<ISymbolCallBack> const symbols = root().symbolCallBack(loader(), table, nullptr, 0);
    status_t const status = readSymbols(list, *symbols, filter, mask);
    m_names.finishLoad();
    symbols->finish();
    return status;
}

status_t SystemMAPDebugInfoLoader::readSymbols(KernelListReader& list, ISymbolCallBack& symbols, AcceptedRanges* filter,
                                               unsigned int mask) {
    KernelListLine line;
    for (std::size_t number = 0; !list.isAtEnd(); ++number) {
        if (!list.readAddress(m_architecture == arch_X86_64, line.address) || !list.readSymbol(line)) {
            return status_BadDebugInfo;
        }
        if (list.isOfModule()) {
            break; // and so are all that follow
        }
        RawSymbol symbol{};
        symbol.address = line.address;
        if (readType(line.type, symbol) && (symbol.kind & mask) != 0 &&
            loader()->segmentByAddress(symbol.address) != nullptr &&
            (filter == nullptr || filter->accept(symbol.address, symbol.address))) {
            symbol.name = m_names.keep(number, line.name.c_str());
            symbols.symbol(symbol);
        }
        list.finishLine();
    }
    return status_Ok;
}

} // namespace ORV_3_30
