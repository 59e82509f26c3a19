// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// What a word means is told from its first character, as addr2line does; an address is looked up among the sections by
// binary search.

#include "orv_cli_where.h"

#include <algorithm>
#include <cctype>

namespace orv_cli {
namespace {

constexpr std::string_view k_blanks = " \t\n\r\v\f";

std::string_view withoutBlanks(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(k_blanks), text.size()));
}

unsigned int digitOf(char c) {
    return c >= '0' && c <= '9'   ? static_cast<unsigned int>(c - '0')
           : c >= 'a' && c <= 'f' ? static_cast<unsigned int>(c - 'a' + 10)
           : c >= 'A' && c <= 'F' ? static_cast<unsigned int>(c - 'A' + 10)
                                  : 16;
}

/// Behind digits: what makes a name of them, or an offset from one.
bool mayBelongToName(std::string_view text) {
    constexpr std::string_view k_marks = "_.$@+";
    return !text.empty() &&
           (std::isalnum(static_cast<unsigned char>(text[0])) != 0 || k_marks.find(text[0]) != std::string_view::npos);
}

/// A signed number behind blanks, as strtoull takes it; 0 where there is none.
unsigned long long offsetOf(std::string_view text) {
    text = withoutBlanks(text);
    bool const isNegative = !text.empty() && text.front() == '-';
    text.remove_prefix(!text.empty() && (isNegative || text.front() == '+') ? 1 : 0);
    unsigned long long value = 0;
    readHex(text, value, text);
    return isNegative ? 0 - value : value;
}

/// True for a section that has a place in memory. One at 0 may be there, or have none: then it does not stand where the
/// segment would have it.
bool hasPlace(ISection& section, IFileFormatLoader& loader) {
    ISegment* const segment = loader.segmentByAddress(section.address());
    if (segment == nullptr || section.size() == 0) {
        return false;
    }
    unsigned long long const start = loader.preferredLoadAddress() + segment->rva();
    return section.address() != 0 || section.fileOffset() - segment->fileOffset() == section.address() - start;
}

} // namespace

bool readHex(std::string_view text, unsigned long long& out, std::string_view& rest) {
    bool const hasPrefix =
        text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') && digitOf(text[2]) < 16;
    std::size_t at = hasPrefix ? 2 : 0;
    std::size_t const begin = at;
    bool isTooLarge = false;
    unsigned long long value = 0;
    for (; at < text.size() && digitOf(text[at]) < 16; ++at) {
        isTooLarge |= value >> 60 != 0;
        value = value << 4 | digitOf(text[at]);
    }
    out = isTooLarge ? ~0ULL : value;
    rest = text.substr(at);
    return at > begin;
}

WordReader::WordReader(Module& module, CommonOptions const& common, std::string const& section)
    : m_module(module), m_mask(module.is32Bit() ? 0xFFFFFFFF : ~0ULL), m_places(module, common) {
    readSections(section);
}

void WordReader::readSections(std::string const& wanted) {
    IFileFormatLoader& loader = m_module.loader();
    bool isFound = wanted.empty();
    SymMgrObjectPtr<ISection> section;
    loader.sectionByIndex(section, 0);
    for (unsigned int index = 0; section; loader.sectionByIndex(section, ++index)) {
        bool const isPlaced = hasPlace(*section, loader);
        ISegment* const segment = isPlaced ? loader.segmentByAddress(section->address()) : nullptr;
        Section const found{section->address(), section->address() + section->size(),
                            segment != nullptr && segment->type() == 1};
        if (isPlaced) {
            m_sections.push_back(found);
        }
        if (!isFound && wanted == section->name()) {
            isFound = true;
            m_isRelative = true;
            m_base = isPlaced ? found : m_base;
        }
    }
    if (!isFound) {
        throw Failure(m_module.name() + ": has no section named " + wanted + ": 'orv sections' lists them");
    }
    SymMgrObjectPtr<IIterator<ISegment*>> segments;
    // A file without sections is loaded by its segments.
    if (m_sections.empty() && m_module.bank().segments(segments) == status_Ok) {
        for (ISegment* segment = segments->current(); segment != nullptr; segment = segments->current()) {
            unsigned long long const start = loader.preferredLoadAddress() + segment->rva();
            m_sections.push_back({start, start + segment->memorySize(), segment->type() == 1});
            segments->next();
        }
    }
    m_loaded = m_sections;
    std::sort(m_loaded.begin(), m_loaded.end(), [](Section const& a, Section const& b) { return a.start < b.start; });
    std::size_t last = 0;
    for (Section const& next : m_loaded) {
        if (next.start <= m_loaded[last].end) {
            m_loaded[last].end = std::max(m_loaded[last].end, next.end);
        } else {
            m_loaded[++last] = next;
        }
    }
    m_loaded.resize(m_loaded.empty() ? 0 : last + 1);
}

void WordReader::read(std::string_view word, Query& query) {
    std::string_view const text = withoutBlanks(word);
    query.word = text.substr(0, text.find_first_of(k_blanks));
    std::string_view const number = text.substr(!text.empty() && text.front() == '+' ? 1 : 0);
    std::string_view behind;
    bool const isNumber = readHex(number, query.value, behind);
    // A name may begin with digits.
    if ((!isNumber || mayBelongToName(behind)) && readName(text, query)) {
        return;
    }
    query.isUnderstood = isNumber || number.empty(); // an empty line counts as address 0
    query.value &= m_mask;
    if (query.isUnderstood) {
        place(query);
    }
}

bool WordReader::readName(std::string_view word, Query& query) {
    std::size_t const end = std::min(word.find_first_of(k_blanks), word.find('+'));
    std::string const name(word.substr(0, end));
    std::string_view const behind = withoutBlanks(word.substr(std::min(end, word.size())));
    unsigned long long address = 0;
    if (name.empty() || !m_places.find(name, address)) {
        return false;
    }
    query.isUnderstood = true;
    address += !behind.empty() && behind.front() == '+' ? offsetOf(behind.substr(1)) : 0;
    query.address = query.value = address & m_mask;
    if (m_module.isLaidOut()) {
        // It stands in a section of its own, and is shown as the file has it.
        auto const holds = [&](Section const& section) {
            return section.start <= query.address && query.address < section.end;
        };
        auto const section = std::find_if(m_sections.begin(), m_sections.end(), holds);
        query.value -= section != m_sections.end() ? section->start : 0;
    }
    if (m_isRelative) {
        place(query);
    } else {
        query.isInModule = isLoaded(query.address);
    }
    return true;
}

void WordReader::place(Query& query) const {
    Section base = m_base;
    if (!m_isRelative && !m_module.isLaidOut()) {
        query.address = query.value;
        query.isInModule = isLoaded(query.address);
        return;
    }
    if (!m_isRelative) {
        auto const holds = [&](Section const& section) {
            return section.isCode && query.value < section.end - section.start;
        };
        auto const section = std::find_if(m_sections.begin(), m_sections.end(), holds);
        base = section != m_sections.end() ? *section : base;
    }
    query.isInModule = query.value < base.end - base.start;
    query.address = base.start + query.value;
}

bool WordReader::isLoaded(unsigned long long address) const {
    auto const at =
        std::upper_bound(m_loaded.begin(), m_loaded.end(), address,
                         [](unsigned long long value, Section const& section) { return value < section.start; });
    return at != m_loaded.begin() && address < (at - 1)->end;
}

} // namespace orv_cli
