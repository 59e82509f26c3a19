// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// What a word means is told from its first character, as addr2line does; an address is looked up among the sections by
// binary search.

#include "orv_cli_where.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <iterator>

namespace orv_cli {
namespace {

constexpr std::string_view k_blanks = " \t\n\r\v\f";

std::string_view withoutBlanks(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(k_blanks), text.size()));
}

/// Behind digits: what makes a name of them, or an offset from one.
bool mayBelongToName(std::string_view text) {
    constexpr std::string_view k_marks = "_.$@+";
    return !text.empty() &&
           (std::isalnum(static_cast<unsigned char>(text[0])) != 0 || k_marks.find(text[0]) != std::string_view::npos);
}

/// A signed number of C behind blanks; 0 where there is none.
unsigned long long offsetOf(std::string_view text) { return std::strtoull(std::string(text).c_str(), nullptr, 0); }

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
    bool const hasPrefix = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') &&
                           std::isxdigit(static_cast<unsigned char>(text[2])) != 0;
    rest = text.substr(hasPrefix ? 2 : 0);
    out = 0;
    auto const [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), out, 16);
    out = error == std::errc::result_out_of_range ? ~0ULL : out;
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    return error != std::errc::invalid_argument;
}

WordReader::WordReader(Module& module, std::optional<std::string> const& section)
    : m_module(module), m_mask(module.is32Bit() ? 0xFFFFFFFF : ~0ULL), m_places(module) {
    readSections(section);
}

void WordReader::readSections(std::optional<std::string> const& wanted) {
    IFileFormatLoader& loader = m_module.loader();
    bool isFound = !wanted;
    SymMgrObjectPtr<ISection> section;
    loader.sectionByIndex(section, 0);
    for (unsigned int index = 0; section; loader.sectionByIndex(section, ++index)) {
        bool const isPlaced = hasPlace(*section, loader);
        ISegment* const segment = isPlaced ? loader.segmentByAddress(section->address()) : nullptr;
        unsigned long long const size = isPlaced ? section->size() : 0;
        m_sections.push_back(
            {section->address(), section->address() + size, segment != nullptr && segment->type() == 1});
        if (!isFound && !wanted->empty() && *wanted == section->name()) {
            isFound = true;
            m_isRelative = true;
            m_base = m_sections.back();
        }
    }
    if (!isFound) {
        throw Failure(m_module.name() + ": has no section named " + *wanted + ": 'orv sections' lists them");
    }
    SymMgrObjectPtr<IIterator<ISegment*>> segments;
    std::copy_if(m_sections.begin(), m_sections.end(), std::back_inserter(m_loaded),
                 [](Section const& s) { return s.start != s.end; });
    for (Section const& next : m_loaded) {
        if (next.isCode && (m_code.empty() || next.end - next.start > m_code.back().end - m_code.back().start)) {
            m_code.push_back(next);
        }
    }
    // A file without sections is loaded by its segments. Where those of a kernel are only its list can tell.
    if (m_loaded.empty() && !m_module.isListedKernel() && m_module.bank().segments(segments) == status_Ok) {
        forEach(segments, [&](ISegment* segment) {
            unsigned long long const start = loader.preferredLoadAddress() + segment->rva();
            m_loaded.push_back({start, start + segment->memorySize(), segment->type() == 1});
        });
    }
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
    std::string_view behind;
    bool isNumber = readHex(text, query.value, behind);
    if (!text.empty() && text.front() == '+') {
        query.value = offsetOf(text.substr(1)); // from nothing
        isNumber = true;
    } else if (!isNumber || mayBelongToName(behind)) {
        // A name may begin with digits; letters with an offset are nothing else.
        bool const isOffset = !behind.empty() && behind.front() == '+';
        if (readName(text, query) || (isOffset && std::isdigit(static_cast<unsigned char>(text.front())) == 0)) {
            query.value = query.isUnderstood ? query.value : 0;
            return;
        }
    }
    query.isUnderstood = isNumber || text.empty(); // an empty line counts as address 0
    query.value &= m_mask;
    if (query.isUnderstood) {
        place(query);
    }
}

bool WordReader::readName(std::string_view word, Query& query) {
    std::size_t const end = std::min(word.find_first_of(k_blanks), word.find('+'));
    std::string_view const behind = withoutBlanks(word.substr(std::min(end, word.size())));
    SymbolPlace found{};
    if (end == 0 || !m_places.find(word.substr(0, end), found)) {
        return false;
    }
    query.isUnderstood = true;
    query.value = (found.value + (!behind.empty() && behind.front() == '+' ? offsetOf(behind.substr(1)) : 0)) & m_mask;
    if (m_module.isLaidOut() && !m_isRelative && found.section < m_sections.size()) {
        placeIn(m_sections[found.section], query); // its value counts there
    } else {
        place(query);
    }
    return true;
}

void WordReader::place(Query& query) const {
    if (m_isRelative) {
        placeIn(m_base, query);
    } else if (m_module.isLaidOut()) {
        auto const isLonger = [](unsigned long long value, Section const& s) { return value < s.end - s.start; };
        auto const section = std::upper_bound(m_code.begin(), m_code.end(), query.value, isLonger);
        bool const isAddress = section == m_code.end() && m_module.hasLaidOutAddresses() && isLoaded(query.value);
        Section const all{0, isAddress ? ~0ULL : 0, false};
        placeIn(section != m_code.end() ? *section : all, query);
    } else {
        query.address = query.value;
        query.isInModule = isLoaded(query.address);
    }
}

void WordReader::placeIn(Section const& section, Query& query) {
    query.isInModule = query.value < section.end - section.start;
    query.address = section.start + query.value;
}

bool WordReader::isLoaded(unsigned long long address) const {
    if (m_loaded.empty()) {
        SymMgrObjectPtr<IAddress> found;
        return m_module.bank().addressByValue(address, found) == status_Ok;
    }
    auto const at =
        std::upper_bound(m_loaded.begin(), m_loaded.end(), address,
                         [](unsigned long long value, Section const& section) { return value < section.start; });
    return at != m_loaded.begin() && address < (at - 1)->end;
}

} // namespace orv_cli
