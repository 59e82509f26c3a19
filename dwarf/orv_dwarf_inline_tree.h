// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What lies in a function: inlined bodies in inlined bodies, and with them labels, static variables and functions.
///
///     InlineTree const tree(unit, dieOffset, firstStart);
///     for (InlineTree::Id id = tree.first(node); id < tree.node(node).behind; id = tree.node(id).behind) ...
///     if (InlineTree::Body const* body = tree.bodyAt(address)) ...     // the innermost; body->around leads outward
///
/// Read in one walk over the entries, in their order, which scopes, chains and lines then share.
#pragma once

#include "core/orv_interval_index.h"
#include "core/orv_range_list.h"
#include "dwarf/orv_dwarf_die.h"
#include "dwarf/orv_dwarf_ranges.h"
#include "dwarf/orv_dwarf_reader.h"

#include <vector>

namespace ORV_3_30 {

/// Not changed once it is read: any thread may ask. Addresses are pseudo addresses.
class InlineTree {
public:
    using Id = std::uint32_t;
    static constexpr Id k_root = 0; ///< The entry that the tree is read for.
    static constexpr Id k_none = ~Id{0};

    struct Node {
        std::uint64_t dieOffset;
        std::uint32_t tag;
        Id behind;        ///< The first that does not lie in this one.
        Id body = k_none; ///< Index of an inlined body of which a symbol is made.
    };
    /// Of an inlined body.
    struct Body {
        char const* name = nullptr;
        unsigned long long address = 0;
        bool isExternal = false;
        Id node = k_root;
        Id around = k_none; ///< Index of the body that it lies in.
        std::uint64_t callFile = k_noFile;
        std::uint64_t callLine = 0;
        std::uint64_t callColumn = 0;
        std::uint64_t discriminator = 0;
        RangeList ranges;
    };

    /// firstStart: where the function begins that the entry stands for.
    InlineTree(DwarfUnit& unit, std::uint64_t dieOffset, unsigned long long firstStart);
    InlineTree(InlineTree const&) = delete;
    InlineTree& operator=(InlineTree const&) = delete;
    ~InlineTree() = default;

    Node const& node(Id id) const { return m_nodes[id]; }
    Body const& body(Id index) const { return m_bodies[index]; }
    /// The innermost body that holds an address, of several the last in the file; null if none does.
    Body const* bodyAt(unsigned long long address) const;
    /// Entries of option texts.
    std::vector<std::uint64_t> const& options() const { return m_options; }

private:
    class Reader;

    /// What the tree has taken from what may be kept; it comes back however the tree ends.
    struct Share {
        Budget& budget;
        std::size_t count = 0;

        explicit Share(Budget& of) : budget(of) {}
        Share(Share const&) = delete;
        Share& operator=(Share const&) = delete;
        ~Share() { budget.giveBack(count); }
        bool take() {
            bool const isThere = budget.spend(1);
            count += isThere ? 1 : 0;
            return isThere;
        }
    };

    Share m_share;
    std::vector<Node> m_nodes; ///< In the order of the file. The root first.
    std::vector<Body> m_bodies;
    std::vector<std::uint64_t> m_options;
    IntervalIndex<Id> m_runs; ///< Of bodies.
};

} // namespace ORV_3_30
