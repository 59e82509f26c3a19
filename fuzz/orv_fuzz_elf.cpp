/// An ELF module through every query of its bank.

#include "orv/orv.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

using namespace ORV_3_30;

namespace {

/// A file in memory that is rewritten for each input.
class InputFile {
public:
    InputFile() : m_descriptor(::memfd_create("orv-fuzz", 0)) {
        m_path = "/proc/self/fd/" + std::to_string(m_descriptor);
    }
    char const* path() const { return m_path.c_str(); }
    bool write(std::uint8_t const* data, std::size_t size) const {
        return ::ftruncate(m_descriptor, 0) == 0 && ::pwrite(m_descriptor, data, size, 0) == static_cast<ssize_t>(size);
    }

private:
    int m_descriptor;
    std::string m_path;
};

constexpr auto k_allKinds = static_cast<symbol_kind_t>(31);

void look(ISymbolRange& range) {
    SymMgrObjectPtr<IAddress> address;
    range.startAddress(address);
    address->fileOffset();
    address->segmentOffset();
    range.endAddress(address);
    range.sizeToNextRange();
    range.isEntryRange();
    if (IThunk* const thunk = range.thunk()) {
        thunk->name();
    }
    SymMgrObjectPtr<ISymbolRange> other;
    range.outerRange(other);
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> it;
    range.innerRanges(it);
    ISymbol& symbol = *range.symbol();
    symbol.demangledName(0);
    symbol.shortName();
    symbol.baseName();
    symbol.ranges(it);
    symbol.thunks(it);
    ICompUnitDetails* unit = nullptr;
    symbol.compUnitDetails(unit);
}

void walk(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> const& it) {
    unsigned int looked = 0;
    for (auto range = it ? it->current() : SymMgrObjectPtr<ISymbolRange>(); range; range = it->current()) {
        if (looked++ < 20) {
            look(*range);
        }
        it->next();
    }
}

void ask(IModuleSymbolBank& bank, std::uint8_t const* data, std::size_t size) {
    bank.entryPoint();
    bank.memoryEstimate();
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> it;
    bank.originalSymbolRanges(it, k_allKinds, nullptr, nullptr);
    walk(it);
    bank.nonOverlappedSymbolRanges(it, k_allKinds, nullptr, nullptr, nullptr);
    walk(it);
    SymMgrObjectPtr<IIterator<ISegment*>> segments;
    if (bank.segments(segments) == status_Ok) {
        for (ISegment* segment = segments->current(); segment != nullptr; segment = segments->current()) {
            SymMgrObjectPtr<IBuffer> buffer;
            segment->read(buffer);
            SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISection>>> sections;
            segment->sections(sections, false);
            for (auto section = sections ? sections->current() : SymMgrObjectPtr<ISection>(); section;
                 section = sections->current()) {
                section->read(buffer);
                sections->next();
            }
            segments->next();
        }
    }
    // Addresses that the input itself holds are the likely ones.
    for (std::size_t i = 0; i + 8 <= size && i < 800; i += 8) {
        unsigned long long value = 0;
        __builtin_memcpy(&value, data + i, 8);
        SymMgrObjectPtr<IAddress> address;
        SymMgrObjectPtr<ISymbolRange> range;
        bank.addressByFileOffset(value, address);
        bank.addressByRVA(value, address);
        if (bank.addressByValue(value, address) == status_Ok) {
            bank.symbolRangeByAddress(address.get(), range, k_allKinds, nullptr);
            std::vector<std::pair<unsigned long long, unsigned long long>> const stretches = {
                {address->rva(), address->rva() + 4}};
            RangesAdapter ranges(&stretches);
            SymMgrObjectPtr<ISymbol> symbol;
            bank.symbolByRanges(&ranges, symbol, false, true);
        }
    }
    if (size > 16) {
        bank.prefetcher()->putRVA(data[size / 2]);
        bank.originalSymbolRanges(it, symbol_kind_Function, nullptr, nullptr);
        walk(it);
    }
    for (char const* const name : {".text", ".zdebug_info", ""}) {
        SymMgrObjectPtr<ISection> section;
        SymMgrObjectPtr<IBuffer> buffer;
        if (bank.sectionByName(name, section) == status_Ok) {
            section->read(buffer);
            section->readAt(1, ~0ULL, buffer);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static InputFile const file;
    if (!file.write(data, size)) {
        return 0;
    }
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    status_t const status = manager->loadSymbolsFromModule(file.path(), nullptr, bank, arch_Unknown, true, "");
    if (status == status_Ok) {
        ask(*bank, data, size);
    } else if (status != status_BadFileFormat) {
        std::abort();
    }
    return 0;
}
