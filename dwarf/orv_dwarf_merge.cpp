// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The rule of debug information: names are the same in their short forms too, and of two ends the one wins that fits
// what follows.
#include "dwarf/orv_dwarf_merge.h"

#include "platform/orv_demangler.h"

#include <cstring>
#include <functional>
#include <string_view>

namespace ORV_3_30 {
namespace {

/// Some compilers end the names of a function's parts in a dot.
bool areEqual(char const* first, char const* second) {
    std::size_t const size = std::strlen(first);
    return std::strncmp(first, second, size) == 0 &&
           (second[size] == '\0' || (second[size] == '.' && second[size + 1] == '\0'));
}

bool isMangled(char const* name) { return name[0] == '_' && name[1] == 'Z'; }

/// What the names of two symbols make of them; merge_Different if they have nothing in common.
unsigned int flagsOfNames(char const* mine, char const* other, ShortNames& shortNames) {
    if (mine == other || std::strcmp(mine, other) == 0) {
        return merge_TakeSymbolData; // taking the same name would change nothing
    }
    std::lock_guard<std::mutex> const guard(shortNames.lock());
    shortNames.makeRoom();
    bool const isHopeful = !isMangled(mine) || !isMangled(other);
    if (isHopeful && areEqual(mine, shortNames.of(other))) {
        return merge_TakeName | merge_TakeSymbolData;
    }
    if (isMangled(mine)) {
        char const* const mineShort = shortNames.of(mine);
        char const* const otherShort = shortNames.of(other);
        if (areEqual(mineShort, otherShort) && !areEqual(mine, mineShort)) {
            return merge_TakeSymbolData;
        }
        // A name that can't be demangled stands for itself in the short form too.
        if (!isHopeful && areEqual(mine, otherShort)) {
            return merge_TakeName | merge_TakeSymbolData;
        }
    }
    return areEqual(mine, other) ? merge_TakeSymbolData : merge_Different;
}

/// What the ends make of two symbols that start at one address.
unsigned int flagsOfRanges(MergeSide const& mine, MergeSide const& other, MergeNext const& next) {
    if (mine.hasSeveralRanges && !other.hasSeveralRanges) {
        return mine.lastEnd == other.lastEnd ? merge_ReplaceScope : merge_Different;
    }
    if (other.isPoint()) {
        return 0;
    }
    if (mine.isPoint()) {
        return merge_ReplaceEnd;
    }
    // One that runs into what follows takes the shorter end, one that stops short of it the longer.
    bool const isTooLong = mine.lastEnd > next.key && mine.lastEnd > other.lastEnd;
    bool const isTooShort = mine.lastEnd < next.key && other.lastEnd <= next.key && mine.lastEnd < other.lastEnd;
    if (!isTooLong && !isTooShort) {
        return 0;
    }
    bool const belongsToNext = next.name != nullptr && other.lastEnd == next.key && areEqual(other.name, next.name);
    return belongsToNext ? merge_Different : merge_ReplaceEnd;
}

} // namespace

void dwarfMatchKeys(MergeSide const& side, MatchRole role, ShortNames& shortNames, MatchKeys& out) {
    char const* const name = side.name;
    auto const add = [&](std::string_view text) {
        out.add(std::hash<std::string_view>()(text) ^ side.firstStart * 0x9E3779B97F4A7C15ULL);
    };
    std::lock_guard<std::mutex> const guard(shortNames.lock());
    shortNames.makeRoom();
    char const* const shortName = shortNames.of(name);
    for (char const* const text : {name, shortName}) {
        std::string_view const whole(text);
        add(whole);
        if (role == MatchRole::Newcomer && !whole.empty() && whole.back() == '.') {
            add(whole.substr(0, whole.size() - 1));
        }
        if (shortName == name) {
            break;
        }
    }
}

char const* ShortNames::of(char const* name) {
    if (!isMangled(name)) {
        return name;
    }
    auto made = m_made.find(name);
    if (made == m_made.end()) {
        std::string const shortName = ISymbolNameDemangler::create(name, exec_format_Elf)->shortName();
        made = m_made.emplace(name, shortName).first;
        m_bytes += made->first.size() + made->second.size();
    }
    return made->second.c_str();
}

void ShortNames::makeRoom() {
    constexpr std::size_t k_mostBytes = std::size_t{1} << 22;
    constexpr std::size_t k_mostNames = std::size_t{1} << 14;
    if (m_bytes > k_mostBytes || m_made.size() > k_mostNames) {
        m_made.clear();
        m_bytes = 0;
    }
}

unsigned int dwarfMergeRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next,
                            ShortNames& shortNames) {
    if (mine.firstStart != other.firstStart) {
        return merge_Different;
    }
    unsigned int const byName = flagsOfNames(mine.name, other.name, shortNames);
    return byName != merge_Different ? byName | flagsOfRanges(mine, other, next) : merge_Different;
}

} // namespace ORV_3_30
