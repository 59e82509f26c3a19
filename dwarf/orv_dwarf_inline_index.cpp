// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "dwarf/orv_dwarf_inline_index.h"

#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_ranges.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

template <typename Number> Number lowestBit(Number number) { return number & (~number + 1); }

} // namespace

/// The walk. It passes over the same entries as the one that fills symbol tables, and stops where that one would do
/// anything that is not plain to see.
class InlineIndex::Reader {
public:
    Reader(InlineIndex& index, DWARFScope& scope)
        : m_index(index), m_unit(scope.unit()), m_loader(*m_unit.loader()), m_walker(m_unit.unitWalker()) {
        m_walker.seek(scope.dieOffset());
    }

    bool read() {
        AbbrevEntry const* const entry = m_unit.abbrevs().find(m_walker.unsignedLeb());
        bool const isFunction =
            entry != nullptr && (entry->tag == DW_TAG_subprogram || entry->tag == DW_TAG_inlined_subroutine);
        // One compiler needs the parent's place to read ranges, and option texts belong to every walk.
        if (!isFunction || m_unit.compilerKind() == compiler_Varko || m_unit.abbrevs().hasUnitOptions()) {
            return false;
        }
        std::uint64_t sibling = 0;
        m_index.m_bodies.emplace_back();
        if (!m_loader.skipEntry(m_walker, m_unit, *entry, sibling)) {
            return false;
        }
        if (entry->hasChildren != 0) {
            m_levels.push_back({k_root, 0});
        }
        while (!m_levels.empty()) {
            if (!step()) {
                return false;
            }
        }
        sortEntries();
        return true;
    }

private:
    /// One entry, or the end of a list. False for what is not known.
    bool step() {
        std::uint64_t const offset = m_walker.offset();
        std::uint64_t const code = m_walker.unsignedLeb();
        if (code == 0) {
            // Who passes over the body goes where the sibling is said to stand.
            std::uint64_t const sibling = m_levels.back().sibling;
            m_index.m_bodies[m_levels.back().body].childrenEnd = m_walker.offset(); // its own list ends last
            m_levels.pop_back();
            return sibling == 0 || sibling == m_walker.offset();
        }
        AbbrevEntry const* const entry = m_unit.abbrevs().find(code);
        return entry != nullptr && act(*entry, offset);
    }

    bool act(AbbrevEntry const& entry, std::uint64_t offset) {
        BodyId const level = m_levels.back().body;
        std::uint64_t sibling = 0;
        switch (entry.tag) {
        case DW_TAG_inlined_subroutine: return addBody(entry, offset);
        case DW_TAG_variable:
            if (!entry.mayBeStatic) {
                return m_loader.skipEntry(m_walker, m_unit, entry, sibling) && entry.hasChildren == 0;
            }
            if (!m_attributes.read(m_walker, m_unit.forms(), m_unit.abbrevs(), entry)) {
                return false;
            }
            if (entry.hasChildren != 0) {
                return false; // whether they are walked depends on the kinds that are asked for
            }
            return noteVariable();
        case DW_TAG_common_block:
        case DW_TAG_module:
        case DW_TAG_lexical_block:
        case DW_TAG_try_block:
            if (!m_loader.skipEntry(m_walker, m_unit, entry, sibling)) {
                return false;
            }
            break;
        case DW_TAG_compile_unit: return false;
        case DW_TAG_subprogram:
        case DW_TAG_entry_point:
        case DW_TAG_label: m_index.m_bodies[level].isPlain = false; [[fallthrough]];
        default: return passOver(entry);
        }
        if (entry.hasChildren != 0) {
            m_levels.push_back({level, 0});
        }
        return true;
    }

    bool passOver(AbbrevEntry const& entry) {
        std::uint64_t sibling = 0;
        if (!m_loader.skipEntry(m_walker, m_unit, entry, sibling)) {
            return false;
        }
        if (entry.hasChildren != 0) {
            m_loader.skipChildren(m_walker, m_unit, sibling);
        }
        return true;
    }

    /// A static variable stands at the level too.
    bool noteVariable() {
        AttrValue const* const location = m_attributes.get(DieAttributes::slot_Location);
        OriginFacts const origin = location == nullptr ? originOfEntry() : OriginFacts();
        bool const isStatic = location != nullptr ? isStaticLocation(*location) : origin.isStatic;
        Body& level = m_index.m_bodies[m_levels.back().body];
        level.isPlain = level.isPlain && !isStatic;
        return !origin.isCut;
    }

    OriginFacts originOfEntry() {
        AttrValue const* reference = m_attributes.get(DieAttributes::slot_AbstractOrigin);
        if (reference == nullptr) {
            reference = m_attributes.get(DieAttributes::slot_Specification);
        }
        return reference != nullptr ? m_loader.origins().factsOf(m_unit, reference->value) : OriginFacts();
    }

    bool addBody(AbbrevEntry const& entry, std::uint64_t offset) {
        if (!m_attributes.read(m_walker, m_unit.forms(), m_unit.abbrevs(), entry)) {
            return false;
        }
        OriginFacts const origin = originOfEntry();
        if (origin.hasPlace || origin.isCut) {
            return false; // ranges are looked for there too
        }
        BodyId const level = m_levels.back().body;
        auto const id = static_cast<BodyId>(m_index.m_bodies.size());
        if (origin.name == nullptr || id == k_none || !place()) {
            if (entry.hasChildren != 0) {
                m_loader.skipChildren(m_walker, m_unit, m_attributes.number(DieAttributes::slot_Sibling));
            }
            return true;
        }
        Body& body = m_index.m_bodies.emplace_back();
        body.dieOffset = offset;
        body.name = origin.name;
        body.address = m_address;
        body.parent = level;
        body.isGlobal = origin.isExternal || m_attributes.has(DieAttributes::slot_External);
        body.ranges = std::move(m_ranges);
        for (std::size_t i = 0; i < body.ranges.size(); ++i) {
            if (!m_loader.spendIndexedRange()) {
                return false;
            }
            m_index.m_entries.push_back({level, id, body.ranges[i].start, body.ranges[i].end, 0});
        }
        if (entry.hasChildren != 0) {
            std::uint64_t const sibling =
                m_unit.trustsSiblings() ? m_attributes.number(DieAttributes::slot_Sibling) : 0;
            m_levels.push_back({id, sibling > m_walker.offset() ? sibling : 0});
        }
        return true;
    }

    /// The ranges of the body that was read, and its address. False if it has none, or none in the module.
    bool place() {
        m_ranges = RangeList();
        AttrValue const* const low = m_attributes.get(DieAttributes::slot_LowPc);
        AttrValue const* const high = m_attributes.get(DieAttributes::slot_HighPc);
        AttrValue const* const list = m_attributes.get(DieAttributes::slot_Ranges);
        if ((low == nullptr || high == nullptr) && list != nullptr) {
            m_pairs.clear();
            m_address = readRanges(m_unit, list, nullptr, m_pairs);
            for (auto const& [start, end] : m_pairs) {
                m_ranges.add(start, end);
            }
        } else if (low != nullptr || high != nullptr) {
            unsigned long long end = 0;
            rangeOfEntry(low, high, m_address, end);
            m_ranges.add(m_address, std::max(m_address, end));
        }
        return !m_ranges.empty() && m_loader.moduleLoader() != nullptr &&
               m_loader.moduleLoader()->segmentByAddress(m_address) != nullptr;
    }

    void sortEntries() {
        std::vector<Entry>& entries = m_index.m_entries;
        std::stable_sort(entries.begin(), entries.end(), [](Entry const& a, Entry const& b) {
            return a.level != b.level ? a.level < b.level : a.start < b.start;
        });
        for (std::size_t begin = 0; begin < entries.size();) {
            begin = sortLevel(begin);
        }
    }

    /// Gives where the next level begins.
    std::size_t sortLevel(std::size_t begin) {
        std::vector<Entry>& entries = m_index.m_entries;
        Body& level = m_index.m_bodies[entries[begin].level];
        std::size_t end = begin + 1;
        for (; end < entries.size() && entries[end].level == entries[begin].level; ++end) {
            level.isPlain = level.isPlain && standsAlone(end);
        }
        auto const first = entries.begin() + static_cast<std::ptrdiff_t>(begin);
        auto const last = entries.begin() + static_cast<std::ptrdiff_t>(end);
        auto const firstLocal = std::stable_partition(
            first, last, [this](Entry const& entry) { return m_index.m_bodies[entry.body].isGlobal; });
        level.firstEntry = static_cast<std::uint32_t>(begin);
        level.globalCount = static_cast<std::uint32_t>(firstLocal - first);
        level.entryCount = static_cast<std::uint32_t>(end - begin);
        noteGreatestEnds(first, firstLocal);
        noteGreatestEnds(firstLocal, last);
        return end;
    }

    static void noteGreatestEnds(std::vector<Entry>::iterator first, std::vector<Entry>::iterator last) {
        for (std::ptrdiff_t number = 1; number <= last - first; ++number) {
            Entry& entry = first[number - 1];
            entry.greatestEnd = entry.end;
            for (std::ptrdiff_t step = 1; step < lowestBit(number); step *= 2) {
                entry.greatestEnd = std::max(entry.greatestEnd, first[number - 1 - step].greatestEnd);
            }
        }
    }

    /// True if an entry does not merge with those of its level that begin where it does, and came before.
    bool standsAlone(std::size_t index) {
        constexpr std::size_t k_mostTogether = 16;
        Entry const& entry = m_index.m_entries[index];
        MergeSide const newcomer = sideOf(entry);
        for (std::size_t i = index; i > 0; --i) {
            Entry const& earlier = m_index.m_entries[i - 1];
            if (earlier.level != entry.level || earlier.start != entry.start) {
                return true;
            }
            bool const mayMerge =
                index - i == k_mostTogether || m_loader.mergeRule(sideOf(earlier), newcomer, {}) != merge_Different;
            if (mayMerge || !m_loader.canSearch()) { // names that cost too much are not compared
                return false;
            }
        }
        return true;
    }

    MergeSide sideOf(Entry const& entry) const {
        Body const& body = m_index.m_bodies[entry.body];
        RangeList::Range const& last = body.ranges[body.ranges.size() - 1];
        return {body.name,           body.ranges[0].start, last.end, body.ranges.size() > 1, symbol_visibility_t{},
                symbol_kind_Function};
    }

    InlineIndex& m_index;
    DWARFCompilationUnit& m_unit;
    DWARFDebugInfoLoader& m_loader;
    DwarfWalker m_walker;
    DieAttributes m_attributes;
    /// A list that is open: the body that it lies in, and where it must end, if that is told.
    struct List {
        BodyId body;
        std::uint64_t sibling;
    };
    std::vector<List> m_levels;
    AddressPairs m_pairs;
    RangeList m_ranges;
    unsigned long long m_address = 0;
};

std::unique_ptr<InlineIndex> InlineIndex::read(DWARFScope& scope) {
    auto index = std::make_unique<InlineIndex>();
    index->m_unit = &scope.unit();
    return Reader(*index, scope).read() ? std::move(index) : nullptr;
}

/// As the symbol table has it among inlined bodies: the more visible, then the later start. Else what stands first in
/// a list wins: what ends later, or came earlier.
bool InlineIndex::find(BodyId level, unsigned long long address, Hit& out) const {
    Body const& body = m_bodies[level];
    Entry const* const first = m_entries.data() + body.firstEntry;
    Group const globals = upTo({first, body.globalCount}, address);
    Group const locals = upTo({first + body.globalCount, body.entryCount - body.globalCount}, address);
    unsigned long long key = 0;
    for (Group const& group : {globals, locals}) {
        key = group.count != 0 ? std::max(key, group.first[group.count - 1].start) : key;
    }
    Entry const* best = lastHolder(globals, address, key);
    best = best != nullptr ? best : lastHolder(locals, address, key);
    if (best != nullptr) {
        out = {best->start, best->end, best->body};
    }
    return best != nullptr;
}

/// Those that begin at an address or below.
InlineIndex::Group InlineIndex::upTo(Group group, unsigned long long address) {
    Entry const* const behind =
        std::upper_bound(group.first, group.first + group.count, address,
                         [](unsigned long long value, Entry const& entry) { return value < entry.start; });
    return {group.first, static_cast<std::uint32_t>(behind - group.first)};
}

/// The best of a group at an address. key: the last start up to the address.
InlineIndex::Entry const* InlineIndex::lastHolder(Group group, unsigned long long address, unsigned long long key) {
    Entry const* best = nullptr;
    for (std::uint32_t number = group.count; number != 0;) {
        Entry const& entry = group.first[number - 1];
        if (best != nullptr && entry.start != best->start) {
            break;
        }
        // What has no extent stands from its key up to the next one.
        bool const isAtKey = entry.start == key;
        bool const holds = entry.end > address || (entry.start == entry.end && isAtKey);
        if (holds && (best == nullptr || entry.end >= best->end)) {
            best = &entry;
        }
        bool const mayHold = isAtKey || entry.greatestEnd > address; // it, or one that it speaks for
        number -= mayHold ? 1 : lowestBit(number);
    }
    return best;
}

InlineIndex::BodyId InlineIndex::bodyAt(BodyId level, std::uint64_t dieOffset) const {
    auto const found = std::lower_bound(m_bodies.begin() + 1, m_bodies.end(), dieOffset,
                                        [](Body const& body, std::uint64_t offset) { return body.dieOffset < offset; });
    bool const isThere = found != m_bodies.end() && found->dieOffset == dieOffset && found->parent == level;
    return isThere ? static_cast<BodyId>(found - m_bodies.begin()) : k_none;
}

DWARFScope* InlineIndex::scopeOf(BodyId id, Scope* parent) {
    Body& body = m_bodies[id];
    DWARFScope* scope = body.scope.load(std::memory_order_acquire);
    if (scope != nullptr) {
        return scope;
    }
    std::lock_guard<std::mutex> const guard(m_lock);
    scope = body.scope.load(std::memory_order_acquire);
    if (scope == nullptr) {
        symbol_visibility_t const visibility = body.isGlobal ? symbol_visibility_Global : symbol_visibility_Local;
        MergeSide const symbol{body.name, body.address, body.address, false, visibility, symbol_kind_Function};
        SymMgrObjectPtr<Scope> made(scope = makeDwarfScope(*m_unit, body.dieOffset, symbol, parent));
        scope->setRanges(body.ranges);
        scope->useIndex(*this, id);
        m_scopes.push_back(std::move(made)); // counts have no lock: nothing touches this one once others see the scope
        body.scope.store(scope, std::memory_order_release);
    }
    return scope;
}

} // namespace ORV_3_30
