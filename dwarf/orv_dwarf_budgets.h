// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What the reading of one file may cost. Entries may share what they refer to, but not without an end.
///
/// What one question reads for itself is counted apart, in a budget that is handed down with it: so what it is given
/// does not hang on what other threads ask.
#pragma once

#include "core/orv_budget.h"

#include <algorithm>
#include <atomic>

namespace ORV_3_30 {

/// Of all questions together. Any thread may spend.
struct DwarfBudgets {
    Budget lineBytes{"line programs"};
    Budget lineHeaderBytes{"headers of line programs"};
    Budget rangePairs{"ranges"};      ///< Filled again for each load.
    Budget textBytes{"texts"};        ///< That are made of those in the sections.
    Budget treeNodes{"inline trees"}; ///< Kept: what goes comes back.
    Budget containers{"namespaces and classes"};
    Budget origins{"origins"};          ///< Each is read once.
    Budget options{"texts of options"}; ///< Searched, those in functions too. Filled again for each load.
    Budget members{"members"};          ///< Kept; many variables may share a type. Filled again for each load.

    struct Sizes {
        std::uint64_t info;
        std::uint64_t strings;
        std::uint64_t lines;
        std::uint64_t ranges;
    };

    /// Once it is known how large the sections are.
    void fill(Sizes const& sizes) {
        m_texts = sizes.info + sizes.strings + sizes.lines;
        m_info = sizes.info;
        m_ranges = sizes.ranges;
        lineBytes.refill(std::max(k_least, sizes.lines * k_lineRereads));
        lineHeaderBytes.refill(std::max(k_least, sizes.lines * k_headerRereads));
        textBytes.refill(k_leastTexts + m_texts * k_textsMade);
        treeNodes.refill(k_least + sizes.info); // an entry takes two bytes, as a rule
        containers.refill(k_least + sizes.info / k_leastContainer);
        origins.refill(searchBytes());
        refill();
    }
    /// For a further file, which has no lines of its own. The load that is on goes on with that much more.
    void grow(Sizes const& more) {
        std::uint64_t const texts = more.info + more.strings;
        m_texts += texts;
        m_info += more.info;
        m_ranges += more.ranges;
        textBytes.giveBack(texts * k_textsMade);
        treeNodes.giveBack(more.info);
        containers.giveBack(more.info / k_leastContainer);
        origins.giveBack(texts * k_textsSearched);
        rangePairs.giveBack(more.ranges / k_leastPair * k_rangeRereads);
        options.giveBack(texts * k_textsSearched);
        members.giveBack(more.info * k_membersMade);
    }
    /// Where a load of all units begins: a client may have many made, and each is to give the same. What lies in scopes
    /// goes on from what it has left.
    void refill() {
        constexpr std::uint64_t k_leastMembers = std::uint64_t{1} << 19; // a few bytes make one of a large type
        rangePairs.refill(k_least + m_ranges / k_leastPair * k_rangeRereads);
        options.refill(searchBytes());
        members.refill(k_leastMembers + m_info * k_membersMade);
    }
    /// Bytes that one question may search: origins, types, texts, lists of locations.
    std::uint64_t searchBytes() const { return k_leastTexts + m_texts * k_textsSearched; }

private:
    static constexpr std::uint64_t k_least = std::uint64_t{1} << 16;
    static constexpr std::uint64_t k_leastTexts = std::uint64_t{1} << 20;
    static constexpr std::uint64_t k_lineRereads = 24; // a merge at link time leaves that many units on one program
    static constexpr std::uint64_t k_headerRereads = 256;
    static constexpr std::uint64_t k_textsMade = 8;
    static constexpr std::uint64_t k_textsSearched = 64;
    static constexpr std::uint64_t k_leastPair = 8;
    static constexpr std::uint64_t k_rangeRereads = 3; // for what lies in functions, and what has no list of its own
    static constexpr std::uint64_t k_membersMade = 2;
    static constexpr std::uint64_t k_leastContainer = 4; // with what stands in it

    // Others ask while a load makes them grow.
    std::atomic<std::uint64_t> m_texts{0};
    std::atomic<std::uint64_t> m_info{0};
    std::atomic<std::uint64_t> m_ranges{0};
};

} // namespace ORV_3_30
