// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What starts at one key of a symbol table, where that is much.
///
/// Linkers leave the debug information of code that they drop at address 0, by the tens of thousands. What
/// comes in there is compared with those that have its name alone, and not with all.
#pragma once

#include "symbols/orv_range_record.h"

#include <cstddef>
#include <functional>
#include <map>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

/// An index beside a key's list. Names are known by their hashes: they can be long, and share their
/// bytes. No lock: the table guards it.
class KeyGroup {
public:
    /// From so many records on it pays.
    static constexpr std::size_t k_least = 16;

    /// What the table knows of a record.
    struct View {
        std::function<char const*(RangeRecord const&)> nameOf; ///< Null for a scope without a symbol.
        std::function<bool(RangeRecord const&)> isPlain;       ///< Goes by plainMergeRule.
    };
    KeyGroup(RangeRecord* head, View view);

    /// The records that may have to do with a newcomer, in list order.
    std::vector<RangeRecord*> candidates(char const* name, unsigned long long start, unsigned long long end);
    void link(RangeRecord*& head, RangeRecord* record);
    void unlink(RangeRecord*& head, RangeRecord* record);
    /// To be called when a record has got another name.
    void rename(RangeRecord* record) { enter(record); }
    RangeRecord* last() const { return m_last; }

private:
    /// The forms under which a name can meet others. Two names may differ in a dot at the end.
    struct Texts {
        std::size_t name;
        std::size_t nameWithoutDot;
        std::size_t shortForm;
        std::size_t shortFormWithoutDot;
    };
    /// Records that share a text.
    struct Same {
        std::vector<RangeRecord*> plain;
        std::unordered_map<unsigned long long, std::vector<RangeRecord*>> plainByEnd;
        std::vector<RangeRecord*> others;
    };

    Texts const& textsOf(char const* name);
    void enter(RangeRecord* record);
    void leave(RangeRecord* record);

    View m_view;
    std::unordered_map<std::size_t, Same> m_byText;
    std::unordered_map<std::size_t, Texts> m_texts;                  ///< By the name.
    std::map<unsigned long long, RangeRecord*> m_lastOfEnd;          ///< The last record with each end.
    std::unordered_map<RangeRecord const*, RangeRecord*> m_previous; ///< Null in front of the first.
    RangeRecord* m_last = nullptr;
};

} // namespace ORV_3_30
