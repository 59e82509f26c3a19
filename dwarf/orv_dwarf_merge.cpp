// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "dwarf/orv_dwarf_merge.h"

#include "platform/orv_demangler.h"
#include "platform/orv_mangled_size.h"

#include <algorithm>
#include <cstring>
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

/// A name without the words that stand for clones, each behind a dot; the whole name if it ends in
/// anything else behind one.
std::string_view withoutClone(std::string_view name) {
    std::size_t const dot = name.find('.');
    if (dot == std::string_view::npos) {
        return name;
    }
    bool isInWord = false;
    for (char const c : name.substr(dot + 1)) {
        bool const isWord = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
        if (!isWord && (c != '.' || !isInWord)) {
            return name;
        }
        isInWord = isWord;
    }
    return isInWord ? name.substr(0, dot) : name;
}

/// True if two names that part at a place do so in the variant of a constructor or destructor alone.
bool isVariantMark(std::string_view a, std::string_view b, std::size_t at) {
    bool const isMarked = at > 2 && (a[at - 1] == 'C' || a[at - 1] == 'D');
    char const first = isMarked && a[at - 1] == 'C' ? '1' : '0';
    auto const isVariant = [&](char c) { return c >= first && c <= first + 2; };
    // The variant ends a nested name. Elsewhere such letters stand in numbers of substitutions.
    if (!isMarked || !isVariant(a[at]) || !isVariant(b[at]) || at + 1 == a.size() || a[at + 1] != 'E' ||
        a.substr(at + 1) != b.substr(at + 1)) {
        return false;
    }
    // Not inside an identifier: none that begins before reaches this far.
    for (std::size_t i = 2; i < at; ++i) {
        std::size_t length = 0;
        std::size_t end = i;
        while (end < at && a[end] >= '0' && a[end] <= '9' && length < at) {
            length = length * 10 + static_cast<std::size_t>(a[end] - '0');
            ++end;
        }
        if (end != i && end + length >= at) {
            return false;
        }
        i = end != i ? end - 1 : i;
    }
    return true;
}

/// What the names of two symbols make of them; merge_Different if they have nothing in common.
unsigned int flagsOfNames(char const* mine, char const* other, ShortNames& shortNames) {
    if (std::strcmp(mine, other) == 0) {
        return merge_TakeSymbolData; // taking the same name would change nothing
    }
    if (areVariantsOfOneName(mine, other)) {
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

bool areVariantsOfOneName(char const* a, char const* b) {
    if (!isMangled(a) || !isMangled(b)) {
        return false;
    }
    std::string_view const mine = withoutClone(a);
    std::string_view const other = withoutClone(b);
    if (mine.size() != other.size()) {
        return false;
    }
    auto const [at, same] = std::mismatch(mine.begin(), mine.end(), other.begin());
    bool const areVariants =
        at == mine.end() || isVariantMark(mine, other, static_cast<std::size_t>(at - mine.begin()));
    // What can't be demangled stands for itself.
    return areVariants && mangledSizeBound(mine) != k_unboundedSize;
}

char const* ShortNames::of(char const* name) {
    if (!isMangled(name)) {
        return name;
    }
    auto const [made, isNew] = m_made.try_emplace(name);
    if (isNew) {
        made->second = ISymbolNameDemangler::create(name, exec_format_Elf)->shortName();
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
