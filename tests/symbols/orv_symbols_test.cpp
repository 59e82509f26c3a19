// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "core/orv_range_list.h"
#include "support/orv_test_support.h"
#include "symbols/orv_accepted_ranges.h"
#include "symbols/orv_globalscope.h"
#include "symbols/orv_scope.h"
#include "symbols/orv_symboltable.h"

#include <map>
#include <random>
#include <set>

using namespace orv_test;

namespace {

std::string text(RangeList const& list) {
    std::string out;
    for (std::size_t i = 0; i < list.size(); ++i) {
        out += '[' + std::to_string(list[i].start) + ',' + std::to_string(list[i].end) + ')';
    }
    return out;
}

SymbolScope* scopeOf(char const* name, unsigned long long start, unsigned long long end,
                     symbol_kind_t kind = symbol_kind_Function,
                     symbol_visibility_t visibility = symbol_visibility_Global) {
    auto* const scope = new SymbolScope(nullptr, SymbolName::copied(name), start, nullptr, visibility, kind);
    scope->addRange(start, end);
    return scope;
}

/// A scope whose decision a test can set.
class DecidingScope final : public SymbolScope, public PlainScopeMaker {
public:
    DecidingScope(char const* name, unsigned long long start, unsigned int flags)
        : SymbolScope(nullptr, SymbolName::copied(name), start, nullptr, symbol_visibility_Global,
                      symbol_kind_Function),
          m_flags(flags) {}
    IScopeMaker& maker() override { return *this; }
    unsigned int mergeRule(MergeSide const& /*mine*/, MergeSide const& /*other*/, MergeNext const& next) override {
        seen = next;
        return m_flags;
    }
    void takeIn(MergeSide const& /*other*/, unsigned int flags, Scope* /*whole*/) override { mergedFlags = flags; }
    MergeNext seen;
    unsigned int mergedFlags = 0;

private:
    unsigned int m_flags;
};

std::string disjoint(ISymbolTable& table, unsigned long long start, unsigned long long end) {
    RangeIterator it;
    table.nonOverlappedSymbolRanges(it, start, end, k_allKinds, nullptr);
    return allRanges(it);
}

/// The steps, one by one. An end of all ones is not known.
class AcceptModel {
public:
    explicit AcceptModel(std::set<unsigned long long> const& requested) : m_requested(requested) {}

    bool accept(unsigned long long a, unsigned long long b) {
        if (m_requested.empty()) {
            return true;
        }
        for (unsigned long long const address : m_requested) {
            if (a <= address && address <= b) {
                bool const isLarger = m_view.count(a) != 0 && m_view[a] != k_open && m_view[a] > b;
                m_view[a] = isLarger ? m_view[a] : b;
                return true;
            }
        }
        unsigned long long next = k_open;
        unsigned long long below = k_open;
        for (unsigned long long const address : m_requested) {
            next = address >= a && next == k_open ? address : next;
            below = address < a ? address : below;
        }
        auto v = m_view.lower_bound(a);
        if ((v == m_view.end() || v->first > b) && a != b) {
            v = v == m_view.begin() ? m_view.end() : std::prev(v);
        }
        bool isBetween = false;
        for (auto const& [key, end] : m_view) {
            isBetween |= a < key && key < next;
        }
        if (a == b && next != k_open && !isBetween) {
            m_view[a] = k_open;
            return true;
        }
        bool const isThere = v != m_view.end();
        if (isThere && v->second != k_open && v->first <= a && a <= v->second) {
            return true;
        }
        if (below == k_open) {
            return false;
        }
        if (isThere && v->first <= a && (v->first >= below || (v->second != k_open && v->second >= below))) {
            return false;
        }
        m_view[a] = k_open;
        return true;
    }

private:
    static constexpr unsigned long long k_open = ~0ULL;
    std::set<unsigned long long> const& m_requested;
    std::map<unsigned long long, unsigned long long> m_view;
};

} // namespace

TEST(RangeList, MergesWhatTouchesButNotTheMainRange) {
    struct {
        char const* name;
        std::vector<RangeList::Range> added;
        char const* expected;
    } const rows[] = {
        {"touching", {{10, 20}, {20, 30}}, "[10,30)"},
        {"bridged", {{10, 20}, {30, 40}, {15, 35}}, "[10,40)"},
        {"in front of main", {{20, 30}, {10, 20}}, "[10,20)[20,30)"},
        {"main is not swallowed", {{20, 30}, {10, 12}, {11, 40}}, "[10,40)[20,30)"},
        {"successor pulled down", {{10, 20}, {40, 50}, {30, 45}}, "[10,20)[30,50)"},
        {"touching the next", {{10, 20}, {30, 40}, {22, 30}}, "[10,20)[22,40)"},
        {"both neighbours", {{10, 20}, {30, 40}, {50, 60}, {20, 55}}, "[10,60)"},
        {"apart", {{10, 20}, {50, 60}, {30, 40}}, "[10,20)[30,40)[50,60)"},
        {"point", {{10, 10}, {10, 10}}, "[10,10)"},
        {"contained", {{10, 50}, {20, 30}}, "[10,50)"},
    };
    for (auto const& row : rows) {
        RangeList list;
        for (RangeList::Range const& range : row.added) {
            list.add(range.start, range.end);
        }
        EXPECT_EQ(text(list), row.expected) << row.name;
    }
}

TEST(RangeList, RemovesByStart) {
    RangeList list;
    EXPECT_FALSE(list.remove(10));
    list.add(20, 30);
    list.add(40, 50);
    list.add(5, 8);
    EXPECT_FALSE(list.remove(21));
    EXPECT_TRUE(list.remove(20));
    EXPECT_EQ(text(list), "[5,8)[40,50)");
    list.add(6, 45); // the main range is gone, so nothing stands in the way
    EXPECT_EQ(text(list), "[5,50)");
    EXPECT_EQ(list.floor(4), nullptr);
    EXPECT_EQ(list.floor(60), &list[0]);
    EXPECT_TRUE(list.remove(5));
    list.add(1, 2);
    EXPECT_EQ(text(list), "[1,2)");
}

TEST(RangeList, FirstFromMissesNoneThatHoldsAnAddress) {
    std::mt19937 random(4);
    for (int round = 0; round < 300; ++round) {
        RangeList list;
        for (int i = 0; i < 8; ++i) {
            unsigned long long const start = random() % 100;
            list.add(start, start + random() % (random() % 4 == 0 ? 90 : 12));
        }
        for (unsigned long long address = 0; address < 200; ++address) {
            for (std::size_t i = 0; i < list.firstFrom(address); ++i) {
                bool const holds = list[i].start <= address && address < list[i].end;
                ASSERT_FALSE(holds) << text(list) << " at " << address;
            }
        }
    }
}

TEST(Scope, RangesAndThunks) {
    SymMgrObjectPtr<SymbolScope> const scope(scopeOf("f", 100, 120));
    scope->addRange(200, 210);
    unsigned long long start = 0;
    unsigned long long end = 0;
    EXPECT_TRUE(scope->rangeAt(start, end, 119));
    EXPECT_EQ(end, 120U);
    EXPECT_FALSE(scope->rangeAt(start, end, 120)) << "the end is outside";
    EXPECT_TRUE(scope->rangeAt(start, end, 205));
    scope->addThunk(new ImportThunk(nullptr, 300, 16));
    scope->addThunk(new ImportThunk(nullptr, 308, 16));
    EXPECT_EQ(scope->thunks().size(), 1U) << "a thunk inside another is ignored";
    EXPECT_EQ(scope->thunkAt(316), nullptr);
    EXPECT_STREQ(scope->thunkAt(315)->name(), "f");
    scope->symbolImpl()->setName("renamed");
    EXPECT_STREQ(scope->thunkAt(300)->name(), "renamed");

    RangeIterator it;
    scope->symbol()->ranges(it);
    EXPECT_EQ(allRanges(it), "renamed[100,120) renamed[200,210)");
    scope->symbol()->thunks(it);
    EXPECT_EQ(allRanges(it), "renamed[300,316)");
}

TEST(Symbol, RawSymbolsKnowNoSource) {
    SymMgrObjectPtr<SymbolScope> scope(scopeOf("_ZN1A1fEi", 5, 9));
    SymMgrObjectPtr<ISymbol> const symbol(scope->symbol());
    SymMgrObjectPtr<ISourceLine> line;
    ICompUnitDetails* unit = nullptr;
    EXPECT_EQ(symbol->sourceLine(line), status_False);
    EXPECT_EQ(symbol->compUnitDetails(unit), status_False);
    char const* const before = symbol->demangledName(0);
    EXPECT_STREQ(before, "A::f(int)");
    scope->symbolImpl()->setName("g");
    EXPECT_STREQ(symbol->baseName(), "g");
    EXPECT_STREQ(before, "A::f(int)") << "names that were handed out stay";

    // A client that holds a symbol beyond its bank keeps the name, and meets nothing that is gone.
    char borrowed[] = "borrowed";
    auto* const late = new Symbol(nullptr, SymbolName::borrowed(borrowed), 1, nullptr, symbol_visibility_Local,
                                  symbol_kind_Data, k_noCompUnit);
    SymMgrObjectPtr<ISymbol> const held(late);
    { SymMgrObjectPtr<SymbolScope> const gone(new SymbolScope(nullptr, nullptr, late)); }
    borrowed[0] = 'X';
    EXPECT_STREQ(held->name(), "borrowed");
    RangeIterator ranges;
    held->ranges(ranges);
    EXPECT_FALSE(ranges);
    SymMgrObjectPtr<IAddress> address;
    EXPECT_EQ(held->address(address), status_Fail);
}

TEST(Symbol, PriorityIsOfSingleKinds) {
    int const expected[] = {10, 1, 2, 10, 4, 10, 10, 10, 3, 10, 10, 10, 10, 10, 10, 10, 0};
    for (unsigned int kind = 0; kind < std::size(expected); ++kind) {
        EXPECT_EQ(symbolPriorityByKind(static_cast<symbol_kind_t>(kind)), expected[kind]) << kind;
    }
}

TEST(SymbolTable, ScopesOfSeveralRangesAndThunks) {
    SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
    SymbolScope* const first = scopeOf("f", 100, 200);
    first->addRange(300, 310);
    first->addThunk(new ImportThunk(nullptr, 400, 16));
    EXPECT_TRUE(table->addScope(first));
    RangeIterator it;
    table->symbolRanges(it, 0, 1000, k_allKinds);
    EXPECT_EQ(allRanges(it), "f[100,200) f[300,310) f[400,416)");

    // One that loses all its ranges leaves its thunks to the winner.
    SymbolScope* const rival = scopeOf("f", 600, 620);
    EXPECT_TRUE(table->addScope(rival));
    SymbolScope* const loser = scopeOf("f", 600, 620);
    loser->addThunk(new ImportThunk(nullptr, 700, 16));
    EXPECT_FALSE(table->addScope(loser));
    ASSERT_NE(rival->thunkAt(705), nullptr);
    SymMgrObjectPtr<SymbolScope> const held(scopeOf("f", 600, 620));
    EXPECT_FALSE(table->addRange(600, 620, held.get()));
    EXPECT_STREQ(held->symbol()->name(), "f") << "a refused scope goes unless it is held";
    SymbolScope* const second = scopeOf("f", 400, 416);
    second->addThunk(new ImportThunk(nullptr, 500, 16));
    EXPECT_TRUE(table->addScope(second));
    EXPECT_FALSE(table->addScope(nullptr));
}

TEST(SymbolTable, RivalsMayTakeANewEnd) {
    for (unsigned int const flags : {merge_ReplaceEnd, merge_ReplaceScope}) {
        SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
        auto* const rival = new DecidingScope("rival", 100, flags);
        rival->addRange(100, 200);
        rival->addRange(500, 520);
        EXPECT_TRUE(table->addScope(rival));
        EXPECT_TRUE(table->addRange(150, 160, scopeOf("inner", 150, 160)));
        table->addRange(170, 170, nullptr);
        EXPECT_FALSE(table->addRange(100, 400, scopeOf("newcomer", 100, 400)));
        EXPECT_EQ(rival->seen.key, 150U);
        EXPECT_STREQ(rival->seen.name, "inner");
        EXPECT_EQ(rival->mergedFlags, flags);
        bool const keepsRest = flags == merge_ReplaceEnd;
        EXPECT_EQ(disjoint(*table, 0, 1000),
                  std::string("rival[100,150) inner[150,160) rival[160,400)") + (keepsRest ? " rival[500,520)" : ""));
    }
}

TEST(SymbolTable, ClientsMayChooseWhatWasNotOffered) {
    class Chooser : public ISymbolChooser {
    public:
        SymMgrObjectPtr<ISymbol> choose(IIterator<SymMgrObjectPtr<ISymbol>>& /*candidates*/) override { return wanted; }
        SymMgrObjectPtr<ISymbol> wanted;
    };
    SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
    table->addRange(0, 10, scopeOf("a", 0, 10));
    table->addRange(0, 11, scopeOf("b", 0, 11));
    SymbolScope* const data = scopeOf("d", 0, 12, symbol_kind_Data);
    table->addRange(0, 12, data);
    SymbolScope* const elsewhere = scopeOf("e", 20, 30);
    table->addRange(20, 30, elsewhere);
    SymMgrObjectPtr<ISymbolRange> range;
    Chooser chooser;
    table->symbolRangeByAddress(range, 5, symbol_kind_Function, &chooser);
    EXPECT_FALSE(range) << "a client may want none";
    for (auto const& [scope, expected] : {std::pair{data, "d[0,12)"}, std::pair{elsewhere, "none"}}) {
        chooser.wanted = scope->symbol();
        table->symbolRangeByAddress(range, 5, symbol_kind_Function, &chooser);
        EXPECT_EQ(range ? rangeText(*range) : "none", expected);
    }
}

TEST(SymbolTable, IteratorsSurviveALoad) {
    SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
    for (unsigned long long at = 0; at < 2000; at += 10) {
        table->addRange(at, at + 10, scopeOf(("s" + std::to_string(at)).c_str(), at, at + 10));
    }
    RangeIterator all;
    RangeIterator pieces;
    table->symbolRanges(all, 0, 2000, k_allKinds);
    table->nonOverlappedSymbolRanges(pieces, 0, 2000, k_allKinds, nullptr);
    std::size_t seen = 0;
    for (unsigned long long at = 5; all->next() && pieces->next(); at += 10) {
        table->addRange(at, at + 1, scopeOf("new", at, at + 1));
        EXPECT_TRUE(all->current() && pieces->current());
        ++seen;
    }
    EXPECT_GE(seen, 199U);
}

TEST(SymbolTable, SurvivesRangesThatMakeNoSense) {
    constexpr unsigned long long top = ~0ULL;
    SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
    table->addRange(100, 50, scopeOf("backwards", 100, 50));
    table->addRange(0, top, scopeOf("everything", 0, top));
    table->addRange(top, top, scopeOf("last", top, top));
    table->addRange(top - 1, 5, scopeOf("wrapped", top - 1, 5));
    SymMgrObjectPtr<ISymbolRange> range;
    for (unsigned long long const at : {0ULL, 75ULL, 100ULL, top - 1}) {
        table->symbolRangeByAddress(range, at, k_allKinds, nullptr);
        ASSERT_TRUE(range) << at;
        EXPECT_STREQ(range->symbol()->name(), "everything") << at;
    }
    table->symbolRangeByAddress(range, top, k_allKinds, nullptr);
    EXPECT_STREQ(range->symbol()->name(), "last");
    RangeIterator it;
    table->symbolRanges(it, 5, 4, k_allKinds);
    EXPECT_FALSE(it);
    EXPECT_NE(disjoint(*table, 0, top), "");
}

TEST(AcceptedRanges, RemembersEachRangeOfAScope) {
    // What the second range of f accepts is what takes g in, which lies inside it.
    std::set<unsigned long long> const requested = {0x1150, 0x1350};
    AcceptedRanges view(requested);
    SymMgrObjectPtr<Scope> const f(scopeOf("f", 0x1100, 0x1200));
    f->addRange(0x1300, 0x1400);
    EXPECT_TRUE(view.acceptScope(*f));
    EXPECT_TRUE(view.accept(0x1320, 0x1330));
}

TEST(AcceptedRanges, TakesWhatTheRequestedAddressesNeed) {
    for (unsigned int seed = 0; seed < 2000; ++seed) {
        std::mt19937 random(seed);
        auto const below = [&](unsigned long long limit) { return random() % limit; };
        std::set<unsigned long long> requested;
        for (unsigned long long count = below(4); count > 0; --count) {
            requested.insert(below(40));
        }
        AcceptedRanges view(requested);
        AcceptModel model(requested);
        std::string history;
        for (int step = 0; step < 30; ++step) {
            unsigned long long const start = below(40);
            unsigned long long const end = start + below(3) * below(8);
            history += std::to_string(start) + "-" + std::to_string(end) + " ";
            ASSERT_EQ(view.accept(start, end), model.accept(start, end)) << "seed " << seed << ": " << history;
        }
    }
}

TEST(RangeFilter, StaysDisjoint) {
    std::mt19937 random(99);
    for (int round = 0; round < 200; ++round) {
        SymMgrObjectPtr<RangeFilter> const filter(new RangeFilter);
        std::vector<bool> covered(120, false);
        for (int i = 0; i < 12; ++i) {
            unsigned long long const start = random() % 100;
            unsigned long long const end = start + random() % 12;
            filter->add(start, end);
            for (unsigned long long at = start; at < end; ++at) {
                covered[at] = true;
            }
        }
        unsigned long long total = 0;
        unsigned long long previousEnd = 0;
        for (auto const& [end, start] : filter->startByEnd()) {
            EXPECT_TRUE(total == 0 || start > previousEnd) << "ranges that touch are one";
            total += end - start;
            previousEnd = end;
        }
        EXPECT_EQ(total, static_cast<unsigned long long>(std::count(covered.begin(), covered.end(), true)));
    }
}

TEST(RangesAdapter, KeepsToWhatThereIs) {
    unsigned long long start = 0;
    unsigned long long size = 0;
    EXPECT_FALSE(RangesAdapter(nullptr).getRange(0, start, size));
    std::vector<std::pair<unsigned long long, unsigned long long>> const ranges = {{10, 25}};
    EXPECT_TRUE(RangesAdapter(&ranges).getRange(0, start, size));
    EXPECT_EQ(size, 15U);
    EXPECT_FALSE(RangesAdapter(&ranges).getRange(1, start, size));
}
