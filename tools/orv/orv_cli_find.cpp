// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "orv_cli_find.h"

#include "orv_cli_progress.h"

#include <algorithm>
#include <unordered_set>

namespace orv_cli {
namespace {

constexpr auto k_allKinds = static_cast<symbol_kind_t>(symbol_kind_Function | symbol_kind_DataAlt | symbol_kind_Data |
                                                       symbol_kind_Other | symbol_kind_FunctionAlt);
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
    for (auto range = ranges ? ranges->current() : SymMgrObjectPtr<ISymbolRange>(); range; range = ranges->current()) {
        found.push_back(range);
        ranges->next();
    }
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
    for (auto range = ranges ? ranges->current() : SymMgrObjectPtr<ISymbolRange>(); range; range = ranges->current()) {
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
        ranges->next();
    }
    unsigned long long value = 0;
    SymMgrObjectPtr<IAddress> where;
    SymMgrObjectPtr<ISymbolRange> range;
    if (found.empty() && parseAddress(word, value) && module.bank().addressByValue(value, where) == status_Ok &&
        module.symbolRangeByAddress(*where, range, k_functionKinds) == status_Ok) {
        found.push_back(range);
    }
    if (found.empty()) {
        throw Failure(module.name() + ": no function is named or stands at " + word +
                      ": 'orv symbols --kind function' lists them");
    }
    return found;
}

bool SymbolPlaces::find(std::string const& name, unsigned long long& address) {
    read();
    auto const [begin, end] = m_places.equal_range(name);
    auto const lowest = std::min_element(begin, end, [](auto const& a, auto const& b) { return a.second < b.second; });
    if (lowest == end) {
        return false;
    }
    address = lowest->second;
    return true;
}

bool SymbolPlaces::isStart(std::string const& name, unsigned long long address) {
    read();
    auto const [begin, end] = m_places.equal_range(name);
    return std::any_of(begin, end, [&](auto const& place) { return place.second == address; });
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

/// A bank without debug information has the names of the symbol table; the companion of a stripped module has what that
/// lacks.
void SymbolPlaces::read() {
    if (m_isRead) {
        return;
    }
    m_isRead = true;
    CommonOptions plain = m_common;
    plain.noDebugInfo = true;
    plain.symbolFile.clear();
    collect(Module::load(m_module.name(), plain, Module::Sharing::Anew,
                         m_module.isLaidOut() ? Module::View::LaidOut : Module::View::AsItStands));
    if (!m_common.noDebugInfo) {
        collect(m_module);
    }
}

void SymbolPlaces::collect(Module& module) {
    std::unordered_multimap<std::string, unsigned long long> places;
    Ranges ranges;
    module.load([&] { return module.bank().originalSymbolRanges(ranges, k_allKinds, nullptr, nullptr); });
    for (auto range = ranges ? ranges->current() : SymMgrObjectPtr<ISymbolRange>(); range; range = ranges->current()) {
        // A stub has the name of what is elsewhere.
        if (range->thunk() == nullptr && m_places.find(range->symbol()->name()) == m_places.end()) {
            places.emplace(range->symbol()->name(), startOf(*range));
        }
        ranges->next();
    }
    m_places.merge(places);
}

} // namespace orv_cli
