// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The rule of debug information: names are the same in their short forms too, and of two ends the one wins that fits
// what follows.
#include "dwarf/orv_dwarf_merge.h"

#include "platform/orv_demangler.h"

#include <algorithm>
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

/// True if a place in a mangled name lies in an identifier.
bool isInIdentifier(std::string_view name, std::size_t at) {
    for (std::size_t i = 2; i < at;) {
        std::size_t length = 0;
        std::size_t digits = 0;
        for (; i + digits < at && name[i + digits] >= '0' && name[i + digits] <= '9' && length < at; ++digits) {
            length = length * 10 + static_cast<std::size_t>(name[i + digits] - '0');
        }
        i += std::max<std::size_t>(digits, 1);
        if (digits != 0 && i + length >= at) {
            return true;
        }
    }
    return false;
}

/// A mangled name without what compilers put behind it for parts and copies of a function, as ".cold" or ".isra.0". The
/// name itself where something else stands behind a dot.
std::string_view withoutClone(std::string_view name) {
    std::size_t const dot = name.find('.');
    bool isInWord = false;
    for (char const c : name.substr(std::min(dot, name.size() - 1) + 1)) {
        bool const isWord = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
        if (!isWord && (c != '.' || !isInWord)) {
            return name;
        }
        isInWord = isWord;
    }
    return isInWord ? name.substr(0, dot) : name;
}

/// True for a function and its parts and copies, and for variants of one constructor or destructor: they have one short
/// form, and nearly all are such that share a start and are not the same. Seen in the mangled names (Itanium C++ ABI,
/// 5.1.4.3), as to demangle them takes longer than all else.
bool areVariants(std::string_view a, std::string_view b) {
    constexpr std::size_t k_longest = 1024; // beyond it a name stands for itself
    if (std::max(a.size(), b.size()) > k_longest) {
        return false;
    }
    a = withoutClone(a);
    b = withoutClone(b);
    auto const at = static_cast<std::size_t>(std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin());
    if (a.size() != b.size() || at == a.size()) {
        return a.size() == b.size();
    }
    bool const isMarked = at > 2 && at + 1 < a.size() && (a[at - 1] == 'C' || a[at - 1] == 'D') && a[at + 1] == 'E';
    char const first = isMarked && a[at - 1] == 'C' ? '1' : '0';
    auto const isVariant = [&](char c) { return c >= first && c <= first + 2; };
    return isMarked && isVariant(a[at]) && isVariant(b[at]) && a.substr(at + 1) == b.substr(at + 1) &&
           !isInIdentifier(a, at);
}

/// What the names of two symbols make of them; merge_Different if they have nothing in common.
unsigned int flagsOfNames(char const* mine, char const* other, ShortNames& shortNames) {
    if (mine == other || std::strcmp(mine, other) == 0) {
        return merge_TakeSymbolData; // taking the same name would change nothing
    }
    if (isMangled(mine) && isMangled(other) && areVariants(mine, other)) {
        return merge_TakeSymbolData;
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
