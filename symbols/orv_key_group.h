/// What starts at one key of a symbol table, where that is much.
///
/// Linkers leave the debug information of code that they drop at address 0, by the tens of thousands. What
/// comes in there is compared with those that have its name alone, and not with all.
#pragma once

#include "symbols/orv_range_record.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

/// An index beside a key's list. No lock: the table guards it.
class KeyGroup {
public:
    /// From so many records on it pays.
    static constexpr std::size_t k_least = 16;

    /// nameOf: a record's name, null for a scope without a symbol.
    KeyGroup(RangeRecord* head, std::function<char const*(RangeRecord const&)> nameOf);

    /// The records whose names may have to do with a newcomer's, in list order.
    std::vector<RangeRecord*> candidates(char const* name);
    /// Puts a record in its place in the list.
    void link(RangeRecord*& head, RangeRecord* record);
    void unlink(RangeRecord*& head, RangeRecord* record);
    /// To be called when a record has got another name.
    void rename(RangeRecord* record) { addTexts(record); }
    RangeRecord* last() const { return m_last; }

private:
    void addTexts(RangeRecord* record);
    void removeTexts(RangeRecord* record);
    std::string const& shortName(char const* name);

    std::function<char const*(RangeRecord const&)> m_nameOf;
    std::unordered_map<std::string, std::vector<RangeRecord*>> m_byText;
    std::unordered_map<char const*, std::string> m_shortNames;       ///< By the name's place.
    std::map<unsigned long long, RangeRecord*> m_lastOfEnd;          ///< The last record with each end.
    std::unordered_map<RangeRecord const*, RangeRecord*> m_previous; ///< Null in front of the first.
    RangeRecord* m_last = nullptr;
};

} // namespace ORV_3_30
