#include "dwarf/orv_dwarf_merge.h"

#include "platform/orv_demangler.h"

#include <cstring>
#include <string>

namespace ORV_3_30 {
namespace {

/// Some compilers end the names of a function's parts in a dot.
bool areEqual(char const* first, char const* second) {
    std::size_t const size = std::strlen(first);
    return std::strncmp(first, second, size) == 0 &&
           (second[size] == '\0' || (second[size] == '.' && second[size + 1] == '\0'));
}

bool isMangled(char const* name) { return name[0] == '_' && name[1] == 'Z'; }

/// The short form of a name, made when it is needed.
class ShortName {
public:
    explicit ShortName(char const* name) : m_name(name) {}
    char const* text() {
        if (!isMangled(m_name)) {
            return m_name;
        }
        if (!m_demangler) {
            m_demangler = ISymbolNameDemangler::create(m_name, exec_format_Elf);
        }
        return m_demangler->shortName();
    }

private:
    char const* m_name;
    SymMgrObjectPtr<ISymbolNameDemangler> m_demangler;
};

/// What the names of two symbols make of them; merge_Different if they have nothing in common.
unsigned int flagsOfNames(char const* mine, char const* other) {
    if (std::strcmp(mine, other) == 0) {
        return merge_TakeSymbolData; // taking the same name would change nothing
    }
    ShortName otherShort(other);
    bool const isHopeful = !isMangled(mine) || !isMangled(other);
    if (isHopeful && areEqual(mine, otherShort.text())) {
        return merge_TakeName | merge_TakeSymbolData;
    }
    if (isMangled(mine)) {
        if (areVariantsOfOneName(mine, other)) {
            return merge_TakeSymbolData;
        }
        ShortName mineShort(mine);
        if (areEqual(mineShort.text(), otherShort.text()) && !areEqual(mine, mineShort.text())) {
            return merge_TakeSymbolData;
        }
        // A name that can't be demangled stands for itself in the short form too.
        if (!isHopeful && areEqual(mine, otherShort.text())) {
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
    bool const belongsToNext =
        next.name != nullptr && other.lastEnd == next.key && std::strcmp(other.name, next.name) == 0;
    return belongsToNext ? merge_Different : merge_ReplaceEnd;
}

} // namespace

bool areVariantsOfOneName(char const* a, char const* b) {
    if (!isMangled(a) || !isMangled(b)) {
        return false;
    }
    std::size_t at = 0;
    while (a[at] == b[at] && a[at] != '\0') {
        ++at;
    }
    auto const isVariant = [](char c) { return c >= '0' && c <= '5'; };
    bool const isMarked = at > 2 && (a[at - 1] == 'C' || a[at - 1] == 'D');
    // The variant ends a nested name. Elsewhere such letters stand in numbers of substitutions.
    if (!isMarked || !isVariant(a[at]) || !isVariant(b[at]) || a[at + 1] != 'E' ||
        std::strcmp(a + at + 1, b + at + 1) != 0) {
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
        if (end == i) {
            continue;
        }
        if (end + length >= at) {
            return false;
        }
        i = end - 1;
    }
    return true;
}

unsigned int dwarfMergeRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next) {
    if (mine.firstStart != other.firstStart) {
        return merge_Different;
    }
    unsigned int const byName = flagsOfNames(mine.name, other.name);
    return byName != merge_Different ? byName | flagsOfRanges(mine, other, next) : merge_Different;
}

} // namespace ORV_3_30
