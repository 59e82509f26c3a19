// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The symbol table against a plain model: every answer worked out from lists of what is alive at each key, for
/// thousands of random ranges that overlap, nest, coincide or have no extent.

#include "support/orv_test_support.h"
#include "symbols/orv_scope.h"
#include "symbols/orv_symboltable.h"

#include <algorithm>
#include <map>
#include <memory>
#include <random>

using namespace orv_test;

namespace {

using Address = unsigned long long;

struct Range {
    Address start;
    Address end;
    symbol_visibility_t visibility;
    symbol_kind_t kind;
    std::string name;
    bool hasUnit = false;
    bool isInline = false;

    bool isPoint() const { return start == end; }
    std::string text() const { return name + '[' + std::to_string(start) + ',' + std::to_string(end) + ')'; }
};

/// A symbol that says that it is from a compilation unit.
class UnitSymbol final : public Symbol {
public:
    using Symbol::Symbol;
    status_t compUnitDetails(ICompUnitDetails*& out) override {
        static int unit = 0;
        out = reinterpret_cast<ICompUnitDetails*>(&unit); // only compared with null
        return status_Ok;
    }
};

/// The scope of an inlined body.
class InlineScope final : public SymbolScope {
public:
    class Instance final : public InlineInstance {
    public:
        using InlineInstance::InlineInstance;
        void callSite(SymMgrObjectPtr<ISourceLocation>& out) override { out = nullptr; }
        bool hasCallSite() override { return false; }
    };
    using SymbolScope::SymbolScope;
    ~InlineScope() override { m_instance->leaveScope(); }
    IInlineInstance* inlineInstance() override { return m_instance.get(); }

private:
    SymMgrObjectPtr<Instance> m_instance{new Instance(this)};
};

/// The rules, read straight: a list of all that is alive at each key, filled as each range comes.
class Model {
public:
    /// Two ranges that start together are one thing if they have one name and one end; then, and
    /// where a label comes to a range of its name, the first stays.
    bool add(Range const& range) {
        auto const known = m_lists.find(range.start);
        if (known != m_lists.end()) {
            for (std::size_t const index : known->second) {
                Range const& other = m_ranges[index];
                bool const endsMatter = other.isPoint() || !range.isPoint();
                if (other.start == range.start && other.name == range.name && (!endsMatter || other.end == range.end)) {
                    return false;
                }
            }
        }
        std::size_t const added = m_ranges.size();
        m_ranges.push_back(range);
        if (known != m_lists.end()) {
            put(known->second, added);
        } else {
            std::vector<std::size_t> list{added};
            inherit(range.start, list);
            m_lists.emplace(range.start, list);
        }
        for (auto at = m_lists.upper_bound(range.start); at != m_lists.end() && at->first < range.end; ++at) {
            put(at->second, added);
        }
        return true;
    }
    void addBoundary(Address key) {
        if (m_lists.count(key) == 0) {
            std::vector<std::size_t> list;
            inherit(key, list);
            m_lists.emplace(key, list);
        }
    }

    Range const* winner(Address address, unsigned int mask) const {
        auto const at = floor(address);
        Range const* best = nullptr;
        if (at == m_lists.end()) {
            return best;
        }
        for (std::size_t const index : at->second) {
            Range const& range = m_ranges[index];
            bool const isCandidate = (range.end > address || range.isPoint()) && (range.kind & mask) != 0;
            if (isCandidate && (best == nullptr || beats(range, *best, address))) {
                best = &range;
            }
        }
        return best;
    }

    std::string touching(Address start, Address end, unsigned int mask) const {
        std::string text;
        if (start > end || m_lists.empty()) {
            return text;
        }
        auto first = floor(start);
        first = first != m_lists.end() ? first : m_lists.begin();
        for (auto at = first; at != m_lists.upper_bound(end); ++at) {
            for (std::size_t const index : at->second) {
                Range const& range = m_ranges[index];
                if ((at == first || range.start == at->first) && touches(range, start, end) &&
                    (range.kind & mask) != 0) {
                    text += (text.empty() ? "" : " ") + range.text();
                }
            }
        }
        return text;
    }

    /// Those that a client may choose from at an address.
    std::string candidates(Address address, unsigned int mask) const {
        std::string text;
        auto const at = floor(address);
        for (std::size_t i = 0; at != m_lists.end() && i < at->second.size(); ++i) {
            Range const& range = m_ranges[at->second[i]];
            if ((range.end > address || range.isPoint()) && (range.kind & mask) != 0) {
                text += (text.empty() ? "" : " ") + range.name;
            }
        }
        return text;
    }

    /// Address by address, then joined: a piece goes on as long as one range wins without a break.
    std::string pieces(Address start, Address end, unsigned int mask) const {
        std::string text;
        Range const* current = nullptr;
        Address begin = 0;
        auto const close = [&](Address at) {
            if (current != nullptr) {
                text += (text.empty() ? "" : " ") + current->name + '[' + std::to_string(begin) + ',' +
                        std::to_string(at) + ')';
            }
            current = nullptr;
        };
        for (Address at = start; at < end; ++at) {
            Range const* const now = winner(at, mask);
            // A label's piece ends at every boundary, and so do ranges that end there.
            bool const isCut = current != nullptr && current->isPoint() && m_lists.count(at) != 0;
            if (now != current || isCut) {
                close(at);
                current = now;
                begin = at;
            }
        }
        close(end);
        return text;
    }

private:
    using Lists = std::map<Address, std::vector<std::size_t>>;

    Lists::const_iterator floor(Address address) const {
        auto const above = m_lists.upper_bound(address);
        return above == m_lists.begin() ? m_lists.end() : std::prev(above);
    }
    /// Behind all that end later or at the same place.
    void put(std::vector<std::size_t>& list, std::size_t index) const {
        auto const endsSooner = [&](std::size_t other) { return m_ranges[other].end < m_ranges[index].end; };
        list.insert(std::find_if(list.begin(), list.end(), endsSooner), index);
    }
    /// What the key before has alive, in its order.
    void inherit(Address key, std::vector<std::size_t>& list) const {
        auto const before = floor(key);
        for (std::size_t i = 0; before != m_lists.end() && i < before->second.size(); ++i) {
            if (key >= m_ranges[before->second[i]].end) {
                break;
            }
            put(list, before->second[i]);
        }
    }
    static bool beats(Range const& a, Range const& b, Address address) {
        if (a.hasUnit != b.hasUnit) {
            return a.hasUnit;
        }
        int const byKind = symbolPriorityByKind(b.kind) - symbolPriorityByKind(a.kind);
        if (byKind != 0) {
            return byKind > 0;
        }
        bool const isHidden = a.isInline && !b.isInline;
        return a.visibility != b.visibility ? a.visibility > b.visibility
                                            : a.start > b.start && a.start <= address && !isHidden;
    }
    static bool touches(Range const& range, Address start, Address end) {
        Address const low = std::max(range.start, start);
        Address const high = std::min(range.end, end);
        if (low != high) {
            return low < high;
        }
        return !(range.end == start && !range.isPoint()) && !(range.start >= end && start != end);
    }

    std::vector<Range> m_ranges;
    Lists m_lists;
};

struct Shape {
    char const* name;
    unsigned int seed;
    int ranges;
    Address space;
    Address longest;
    bool asRawSymbols; ///< All at once, as the symbol table of a file.
};

void PrintTo(Shape const& shape, std::ostream* out) { *out << shape.name; }

class Oracle : public testing::TestWithParam<Shape> {
protected:
    void SetUp() override {
        m_random.seed(GetParam().seed);
        std::vector<Range> ranges;
        for (int i = 0; i < GetParam().ranges; ++i) {
            ranges.push_back(randomRange());
        }
        if (GetParam().asRawSymbols) {
            addAsRaw(ranges);
        } else {
            addOneByOne(ranges);
        }
    }

    Address below(Address limit) { return m_random() % limit; }

    Range randomRange() {
        static constexpr symbol_kind_t kinds[] = {symbol_kind_Function, symbol_kind_DataAlt, symbol_kind_Data,
                                                  symbol_kind_Other, symbol_kind_FunctionAlt};
        Range range;
        range.start = below(GetParam().space);
        range.end = range.start + (below(5) == 0 ? 0 : below(GetParam().longest));
        range.visibility = below(2) == 0 ? symbol_visibility_Local : symbol_visibility_Global;
        range.kind = kinds[below(5)];
        range.name = "s" + std::to_string(below(4)); // few names, so that some are the same thing
        range.hasUnit = !GetParam().asRawSymbols && below(4) == 0;
        range.isInline = !GetParam().asRawSymbols && below(3) == 0;
        return range;
    }

    void addOneByOne(std::vector<Range> const& ranges) {
        for (Range const& range : ranges) {
            if (below(10) == 0) {
                Address const boundary = below(GetParam().space);
                EXPECT_FALSE(m_table->addRange(boundary, boundary, nullptr));
                m_model.addBoundary(boundary);
            }
            SymbolScope* const scope = range.isInline ? new InlineScope(nullptr, nullptr, makeSymbol(range))
                                                      : new SymbolScope(nullptr, nullptr, makeSymbol(range));
            scope->addRange(range.start, range.end);
            EXPECT_EQ(m_table->addRange(range.start, range.end, scope), m_model.add(range)) << range.text();
        }
    }

    void addAsRaw(std::vector<Range> const& ranges) {
        std::vector<RawSymbol> raw;
        for (Range const& range : ranges) {
            m_names.push_back(std::make_unique<std::string>(range.name));
            raw.push_back(
                {m_names.back()->c_str(), range.start, range.end - range.start, range.visibility, range.kind});
            m_model.add(range);
        }
        // In two goes, so that the second meets the first.
        std::size_t const half = raw.size() / 2;
        auto& table = static_cast<SymbolTable&>(*m_table);
        RawSymbolBatch first(half);
        RawSymbolBatch second(raw.size() - half);
        for (std::size_t i = 0; i < raw.size(); ++i) {
            (i < half ? first : second).add(raw[i]);
        }
        table.addRawSymbols(nullptr, std::move(first));
        table.addRawSymbols(nullptr, std::move(second));
    }

    static Symbol* makeSymbol(Range const& range) {
        SymbolName const name = SymbolName::copied(range.name.c_str());
        if (range.hasUnit) {
            return new UnitSymbol(nullptr, name, range.start, nullptr, range.visibility, range.kind, 1);
        }
        return new Symbol(nullptr, name, range.start, nullptr, range.visibility, range.kind, k_noCompUnit);
    }

    static std::string text(ISymbolRange& range) { return rangeText(range); }

    std::mt19937 m_random;
    SymMgrObjectPtr<ISymbolTable> m_table = ISymbolTable::create(nullptr);
    Model m_model;
    std::vector<std::unique_ptr<std::string>> m_names;
};

} // namespace

TEST_P(Oracle, WinnerAtEachAddress) {
    for (unsigned int const mask : {31U, 1U, 4U, 27U, 8U, 20U}) {
        for (Address at = 0; at < GetParam().space + GetParam().longest + 2; ++at) {
            Range const* const expected = m_model.winner(at, mask);
            SymMgrObjectPtr<ISymbolRange> range;
            m_table->symbolRangeByAddress(range, at, static_cast<symbol_kind_t>(mask), nullptr);
            ASSERT_EQ(range ? text(*range) : "none", expected != nullptr ? expected->text() : "none")
                << "at " << at << " with mask " << mask << ", seed " << GetParam().seed;
        }
    }
}

TEST_P(Oracle, CandidatesInOrder) {
    class Listing final : public ISymbolChooser {
    public:
        SymMgrObjectPtr<ISymbol> choose(IIterator<SymMgrObjectPtr<ISymbol>>& candidates) override {
            for (auto symbol = candidates.current(); symbol; symbol = candidates.current()) {
                names += (names.empty() ? "" : " ") + std::string(symbol->name());
                candidates.next();
            }
            return {};
        }
        std::string names;
    };
    for (int i = 0; i < 300; ++i) {
        Address const at = below(GetParam().space);
        unsigned int const mask = i % 2 == 0 ? 31 : 1 + static_cast<unsigned int>(below(31));
        Listing listing;
        SymMgrObjectPtr<ISymbolRange> range;
        m_table->symbolRangeByAddress(range, at, static_cast<symbol_kind_t>(mask), &listing);
        std::string const expected = m_model.candidates(at, mask);
        bool const isChoice = expected.find(' ') != std::string::npos; // one alone is no choice
        ASSERT_EQ(listing.names, isChoice ? expected : "") << "at " << at << " with mask " << mask;
    }
}

TEST_P(Oracle, RangesTouchingAStretch) {
    for (int i = 0; i < 400; ++i) {
        Address const start = below(GetParam().space);
        Address const end = below(4) == 0 ? start : start + below(GetParam().space / 8 + 2);
        unsigned int const mask = i % 2 == 0 ? 31 : 1 + static_cast<unsigned int>(below(31));
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> it;
        m_table->symbolRanges(it, start, end, static_cast<symbol_kind_t>(mask));
        ASSERT_EQ(allRanges(it), m_model.touching(start, end, mask))
            << '[' << start << ',' << end << ") with mask " << mask << ", seed " << GetParam().seed;
    }
}

TEST_P(Oracle, DisjointWalk) {
    for (int i = 0; i < 40; ++i) {
        Address const start = i == 0 ? 0 : below(GetParam().space);
        Address const end = i == 0 ? GetParam().space * 2 : start + below(GetParam().space / 4 + 2);
        unsigned int const mask = i % 2 == 0 ? 31 : 1 + static_cast<unsigned int>(below(31));
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> it;
        m_table->nonOverlappedSymbolRanges(it, start, end, static_cast<symbol_kind_t>(mask), nullptr);
        ASSERT_EQ(allRanges(it), m_model.pieces(start, end, mask))
            << '[' << start << ',' << end << ") with mask " << mask << ", seed " << GetParam().seed;
    }
}

TEST(SymbolTable, WhoMakesAKeyStandsFirstThere) {
    SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
    auto const add = [&](char const* name, Address start, Address end) {
        auto* const scope = new SymbolScope(nullptr, SymbolName::copied(name), start, nullptr, symbol_visibility_Global,
                                            symbol_kind_Function);
        scope->addRange(start, end);
        table->addRange(start, end, scope);
    };
    auto const at = [&](Address address) {
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> it;
        table->symbolRanges(it, address, address, k_allKinds);
        return allRanges(it);
    };
    add("g", 57, 66);
    add("f", 59, 66);
    EXPECT_EQ(at(59), "f[59,66) g[57,66)");
    add("h", 63, 66); // a key of its own: before those of the key before, in that key's order
    EXPECT_EQ(at(64), "h[63,66) f[59,66) g[57,66)");
    table->addRange(61, 61, nullptr);
    add("k", 60, 66); // at 61 and 63, which were there, it stands behind
    EXPECT_EQ(at(60), "k[60,66) f[59,66) g[57,66)");
    EXPECT_EQ(at(61), "f[59,66) g[57,66) k[60,66)");
    EXPECT_EQ(at(63), "h[63,66) f[59,66) g[57,66) k[60,66)");
    add("l", 62, 66); // made after k: the order of the key before it
    EXPECT_EQ(at(62), "l[62,66) f[59,66) g[57,66) k[60,66)");
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, Oracle,
    testing::Values(Shape{"Crowded", 1, 300, 60, 40, false}, Shape{"CrowdedRaw", 2, 300, 60, 40, true},
                    Shape{"Nested", 3, 800, 2000, 400, false}, Shape{"NestedRaw", 4, 800, 2000, 400, true},
                    Shape{"Sparse", 5, 1500, 20000, 30, false}, Shape{"SparseRaw", 6, 6000, 60000, 30, true},
                    Shape{"Labels", 7, 500, 3000, 2, false}, Shape{"Equal", 8, 400, 12, 5, false},
                    Shape{"EqualRaw", 9, 400, 12, 5, true}, Shape{"Wide", 10, 900, 4000, 4000, false}),
    [](auto const& info) { return info.param.name; });
