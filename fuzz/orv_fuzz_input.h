// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What the fuzz targets that need a module share: a file in memory, and all questions about its bank.
#pragma once

#include "orv/orv.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace orv_fuzz {

using namespace ORV_3_30;

/// A file in memory that is rewritten for each input.
class InputFile {
public:
    InputFile() : m_descriptor(::memfd_create("orv-fuzz", 0)) {
        m_path = "/proc/self/fd/" + std::to_string(m_descriptor);
    }
    char const* path() const { return m_path.c_str(); }
    bool write(void const* data, std::size_t size) const {
        return ::ftruncate(m_descriptor, 0) == 0 && ::pwrite(m_descriptor, data, size, 0) == static_cast<ssize_t>(size);
    }

private:
    int m_descriptor;
    std::string m_path;
};

constexpr auto k_allKinds = static_cast<symbol_kind_t>(31);
/// Of so many things of one kind all that can be asked is asked.
constexpr unsigned int k_looked = 20;

using Lines = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>;
using Ranges = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>;

inline void walk(Lines const& lines) {
    for (auto line = lines ? lines->current() : SymMgrObjectPtr<ISourceLine>(); line; line = lines->current()) {
        line->location()->sourceFile();
        line->relativeAddress();
        lines->next();
    }
}

inline void look(ICompUnitDetails& unit) {
    unit.mainSourceFile();
    unit.compilationDirectory();
    unit.compileOptions();
    unit.optReportFile();
    unit.compilerName();
    unit.sourceFileByName("a.c");
    unit.language();
}

inline void look(ISymbolRange& range, unsigned int depth);

inline void walk(Ranges const& it, unsigned int depth = 0) {
    unsigned int looked = 0;
    for (auto range = it ? it->current() : SymMgrObjectPtr<ISymbolRange>(); range; range = it->current()) {
        if (looked++ < k_looked && depth < 4) {
            look(*range, depth);
        }
        it->next();
    }
}

inline void look(ISymbolRange& range, unsigned int depth) {
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
    Ranges it;
    range.innerRanges(it);
    walk(it, depth + 1);
    ISymbol& symbol = *range.symbol();
    symbol.demangledName(0);
    symbol.shortName();
    symbol.baseName();
    symbol.ranges(it);
    symbol.thunks(it);
    ICompUnitDetails* unit = nullptr;
    if (symbol.compUnitDetails(unit) == status_Ok) {
        look(*unit);
    }
    Lines lines;
    symbol.sourceLines(lines);
    walk(lines);
    SymMgrObjectPtr<ISourceLine> line;
    symbol.sourceLine(line);
    symbol.sourceLineByAddress(line, address.get());
    if (IInlineInstance* const instance = range.inlineInstance()) {
        SymMgrObjectPtr<ISourceLocation> callSite;
        instance->callSite(callSite);
    }
}

/// All questions for one address.
inline void askAt(IModuleSymbolBank& bank, unsigned long long value) {
    SymMgrObjectPtr<IAddress> address;
    SymMgrObjectPtr<ISymbolRange> range;
    bank.addressByFileOffset(value, address);
    bank.addressByRVA(value, address);
    if (bank.addressByValue(value, address) == status_Ok) {
        bank.symbolRangeByAddress(address.get(), range, k_allKinds, nullptr);
        SymMgrObjectPtr<ISourceLocation> location;
        if (bank.sourceLocationByAddress(address.get(), location, ~0ULL, nullptr) == status_Ok) {
            Lines lines;
            if (ISourceFile* const file = location->sourceFile()) {
                file->sourceLines(lines, ~0ULL, address.get(), nullptr);
                walk(lines);
            }
        }
        std::vector<std::pair<unsigned long long, unsigned long long>> const stretches = {
            {address->rva(), address->rva() + 4}};
        RangesAdapter ranges(&stretches);
        SymMgrObjectPtr<ISymbol> symbol;
        bank.symbolByRanges(&ranges, symbol, false, true);
    }
}

/// All questions, and those for the addresses that the input holds, which are the likely ones.
inline void askAll(IModuleSymbolBank& bank, std::uint8_t const* data, std::size_t size) {
    bank.entryPoint();
    bank.memoryEstimate();
    Ranges it;
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
    for (std::size_t i = 0; i + 8 <= size && i < 800; i += 8) {
        unsigned long long value = 0;
        __builtin_memcpy(&value, data + i, 8);
        askAt(bank, value);
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

} // namespace orv_fuzz
