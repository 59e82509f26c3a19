// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Symbols by name, of several the one that a user means.
#include "orv_cli_find.h"

#include "orv_cli_progress.h"

#include <algorithm>
#include <cstring>
#include <elf.h>
#include <unordered_set>

namespace orv_cli {
namespace {

constexpr auto k_functionKinds = static_cast<symbol_kind_t>(symbol_kind_Function | symbol_kind_FunctionAlt);

enum class Match { None, Short, Whole };

Match matchOf(ISymbol& symbol, std::string const& name) {
    bool const isWhole = name == symbol.name() || name == symbol.demangledName(0);
    return isWhole ? Match::Whole : name == symbol.shortName() ? Match::Short : Match::None;
}

} // namespace

unsigned long long startOf(ISymbolRange& range) {
    SymMgrObjectPtr<IAddress> start;
    range.startAddress(start);
    return start->pseudoAddr();
}

std::vector<SymMgrObjectPtr<ISymbolRange>> rangesOf(ISymbol& symbol) {
    std::vector<SymMgrObjectPtr<ISymbolRange>> found;
    Ranges ranges;
    symbol.ranges(ranges);
    forEach(ranges, [&](auto const& range) { found.push_back(range); });
    return found;
}

std::vector<SymMgrObjectPtr<ISymbolRange>> findFunctions(Module& module, std::string const& word) {
    Progress const progress("reading " + module.name());
    std::vector<SymMgrObjectPtr<ISymbolRange>> found;
    // A function may come with each of its ranges, and as an ELF symbol of one of them.
    std::unordered_set<unsigned long long> starts;
    Match best = Match::Short; // who has the whole name goes before those that have it in short
    Ranges ranges;
    module.load([&] { return module.bank().originalSymbolRanges(ranges, k_functionKinds, nullptr, nullptr); });
    forEach(ranges, [&](auto const& range) {
        Match const match = matchOf(*range->symbol(), word);
        if (match > best) {
            found.clear();
            starts.clear();
            best = match;
        }
        if (match == best && starts.insert(startOf(*range)).second) {
            found.push_back(range);
            for (auto const& part : rangesOf(*range->symbol())) {
                starts.insert(startOf(*part));
            }
        }
    });
    unsigned long long value = 0;
    SymMgrObjectPtr<IAddress> where;
    SymMgrObjectPtr<ISymbolRange> range;
    if (found.empty() && parseAddress(word, value) && module.bank().addressByValue(value, where) == status_Ok &&
        module.symbolRangeByAddress(*where, range, k_functionKinds) == status_Ok) {
        found.push_back(range);
    }
    if (found.empty() && module.bank().execFileFormat() == exec_format_Vex) {
        throw Failure(module.name() + ": is a GPU kernel's binary, of which no functions are known: see 'orv lines'");
    }
    if (found.empty()) {
        throw Failure(module.name() + ": no function is named or stands at " + word +
                      ": 'orv symbols --kind function' lists them");
    }
    return found;
}

bool SymbolPlaces::find(std::string_view name, SymbolPlace& place) {
    auto const [begin, end] = named(name);
    if (begin != end) {
        place = begin->place;
    }
    return begin != end;
}

bool SymbolPlaces::isStart(std::string_view name, unsigned long long address) {
    auto const [begin, end] = named(name);
    return std::any_of(begin, end, [&](Named const& symbol) { return addressOf(symbol.place) == address; });
}

unsigned long long SymbolPlaces::addressOf(SymbolPlace const& place) {
    SymMgrObjectPtr<ISection> section;
    if (m_module.hasLaidOutAddresses()) {
        m_module.loader().sectionByIndex(section, place.section);
    }
    return place.value + (section ? section->address() : 0);
}

SymMgrObjectPtr<ISymbolRange> SymbolPlaces::entryOf(ISymbol& function,
                                                    std::vector<SymMgrObjectPtr<ISymbolRange>> const& ranges) {
    auto const isOfName = [&](auto const& range) { return isStart(function.name(), startOf(*range)); };
    auto entry = ranges.size() > 1 ? std::find_if(ranges.begin(), ranges.end(), isOfName) : ranges.end();
    if (entry == ranges.end()) {
        entry = std::find_if(ranges.begin(), ranges.end(), [](auto const& range) { return range->isEntryRange(); });
    }
    return entry != ranges.end() ? *entry : SymMgrObjectPtr<ISymbolRange>();
}

SymbolPlaces::Found SymbolPlaces::named(std::string_view name) {
    read();
    return std::equal_range(m_symbols.begin(), m_symbols.end(), Named{name, {}}, isBefore);
}

void SymbolPlaces::read() {
    if (m_isRead) {
        return;
    }
    m_isRead = true;
    bool const isWhole = readTable(".symtab", ".strtab");
    if (!isWhole) {
        readTable(".dynsym", ".dynstr");
        collectFromBank();
    }
    std::stable_sort(m_symbols.begin(), m_symbols.end(), isBefore);
}

bool SymbolPlaces::readTable(char const* symbols, char const* strings) {
    SymMgrObjectPtr<ISection> symbolSection;
    SymMgrObjectPtr<ISection> stringSection;
    m_module.loader().sectionByName(symbolSection, symbols);
    m_module.loader().sectionByName(stringSection, strings);
    SymMgrObjectPtr<IBuffer> table;
    SymMgrObjectPtr<IBuffer> names;
    if (!symbolSection || !stringSection || symbolSection->read(table) != status_Ok ||
        stringSection->read(names) != status_Ok) {
        return false;
    }
    m_strings.push_back(names);
    if (m_module.is32Bit()) {
        readSymbols<Elf32_Sym>(*table, *names);
    } else {
        readSymbols<Elf64_Sym>(*table, *names);
    }
    return true;
}

template <typename Symbol> void SymbolPlaces::readSymbols(IBuffer& symbols, IBuffer& strings) {
    auto const* const text = reinterpret_cast<char const*>(strings.data());
    for (unsigned long long at = 0; symbols.size() - at >= sizeof(Symbol); at += sizeof(Symbol)) {
        Symbol symbol;
        std::memcpy(&symbol, symbols.data() + at, sizeof(symbol));
        unsigned int const type = symbol.st_info & 0xF;
        bool const isNamed = symbol.st_name < strings.size() && type != STT_SECTION && type != STT_FILE &&
                             symbol.st_shndx != SHN_UNDEF && symbol.st_shndx != SHN_COMMON;
        if (!isNamed) {
            continue;
        }
        char const* const name = text + symbol.st_name;
        m_symbols.push_back(
            {{name, ::strnlen(name, strings.size() - symbol.st_name)}, {symbol.st_value, symbol.st_shndx}});
    }
}

void SymbolPlaces::collectFromBank() {
    Ranges ranges;
    m_module.load([&] { return m_module.bank().originalSymbolRanges(ranges, k_allKinds, nullptr, nullptr); });
    forEach(ranges, [&](auto const& range) {
        if (range->thunk() == nullptr) { // a stub has the name of what is elsewhere
            m_bankNames.emplace_back(range->symbol()->name());
            m_symbols.push_back({m_bankNames.back(), {startOf(*range), SHN_ABS}});
        }
    });
}

} // namespace orv_cli
