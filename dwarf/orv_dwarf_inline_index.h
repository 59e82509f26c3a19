// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Where the inlined bodies of a function stand, level by level.
///
///     std::unique_ptr<InlineIndex> const index = InlineIndex::read(function);
///     InlineIndex::Hit hit;
///     if (index && index->isPlain(InlineIndex::k_root) && index->find(InlineIndex::k_root, address, hit)) ...
///
/// A chain of inlined calls is asked for address by address, in functions with thousands of bodies. One walk over
/// the function's entries finds them all, and scopes are made of those that an answer names. A level at which
/// something else stands beside the bodies, or two merge, is not plain: what comes of it is the symbol table's
/// business.
#pragma once

#include "dwarf/orv_dwarf_scope.h"

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace ORV_3_30 {

/// Owned by the scope that it was read for, and used by those inside. Not changed once it is read, but for the scopes,
/// which m_lock guards.
class InlineIndex {
public:
    using BodyId = std::uint32_t;
    static constexpr BodyId k_root = 0; ///< The scope that the index is read for.
    static constexpr BodyId k_none = ~BodyId{0};

    /// Null where the entries have anything that the walk does not know.
    static std::unique_ptr<InlineIndex> read(DWARFScope& scope);

    bool isPlain(BodyId level) const { return m_bodies[level].isPlain; }
    struct Hit {
        unsigned long long start;
        unsigned long long end;
        BodyId body;
    };
    /// The range that wins at an address of a plain level; false if there is none.
    bool find(BodyId level, unsigned long long address, Hit& out) const;
    /// The body of the entry at an offset, directly inside another one; k_none if there is none.
    BodyId bodyAt(BodyId level, std::uint64_t dieOffset) const;
    /// Behind the children of a body; 0 if it has none.
    std::uint64_t childrenEnd(BodyId body) const { return m_bodies[body].childrenEnd; }
    /// The scope of a body, made when it is first needed. parent: that of the body around it. Lives as long as the
    /// index.
    DWARFScope* scopeOf(BodyId body, Scope* parent);

private:
    class Reader;
    /// Where a range begins at which level. By level, the global ones first, then by start.
    struct Entry {
        BodyId level;
        BodyId body;
        unsigned long long start;
        unsigned long long end;
        /// Of this one and those in front of it, as many as the lowest bit of its number in its group says: a tree of
        /// greatest ends in an array.
        unsigned long long greatestEnd;
    };
    struct Body {
        std::uint64_t dieOffset = 0;
        char const* name = nullptr;
        unsigned long long address = 0;
        BodyId parent = k_none;
        std::uint64_t childrenEnd = 0; ///< Behind the list of its children; 0 if it has none.
        std::uint32_t firstEntry = 0;  ///< Of the level inside.
        std::uint32_t globalCount = 0;
        std::uint32_t entryCount = 0;
        bool isPlain = true;
        bool isGlobal = false;
        RangeList ranges;
        std::atomic<DWARFScope*> scope{nullptr};
    };
    /// Entries of a level that are all global or all local.
    struct Group {
        Entry const* first;
        std::uint32_t count;
    };
    static Group upTo(Group group, unsigned long long address);
    static Entry const* lastHolder(Group group, unsigned long long address, unsigned long long key);

    DWARFCompilationUnit* m_unit = nullptr;
    std::deque<Body> m_bodies; ///< In the order of the file. The root first.
    std::vector<Entry> m_entries;
    std::mutex m_lock;
    std::vector<SymMgrObjectPtr<Scope>> m_scopes;
};

} // namespace ORV_3_30
