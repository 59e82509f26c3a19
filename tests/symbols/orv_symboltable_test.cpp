// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The symbol table against a plain model: lists of what is alive at each key, changed step by step, for thousands of
/// random ranges that overlap, nest, coincide or have no extent, and for what a rule of merging makes of them.

#include "support/orv_test_support.h"
#include "symbols/orv_scope.h"
#include "symbols/orv_symboltable.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <deque>
#include <map>
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
    MergeSide side() const { return {name.c_str(), start, end, false, visibility, kind}; }
};

using Rule = unsigned int (*)(MergeSide const& mine, MergeSide const& other, MergeNext const& next);

/// Two ranges that start together are one thing if they have one name and one end; then, and where a label comes to a
/// range of its name, the first stays.
unsigned int plainRule(MergeSide const& mine, MergeSide const& other, MergeNext const& /*next*/) {
    bool const endsMatter = mine.isPoint() || !other.isPoint();
    bool const areSame = std::strcmp(mine.name, other.name) == 0 && (!endsMatter || mine.lastEnd == other.lastEnd);
    return areSame ? merge_Same : merge_Different;
}

/// Names are the same but for the case of letters; one in upper case is taken over, as are visibilities. Of two ends
/// the one wins that fits what follows.
unsigned int changingRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next) {
    bool const areSame =
        std::tolower(mine.name[0]) == std::tolower(other.name[0]) && std::strcmp(mine.name + 1, other.name + 1) == 0;
    if (!areSame) {
        return merge_Different;
    }
    if (mine.lastEnd == other.lastEnd && std::strcmp(mine.name, other.name) == 0 &&
        mine.visibility == other.visibility) {
        return merge_Same;
    }
    unsigned int flags = merge_TakeSymbolData | (std::isupper(other.name[0]) != 0 ? merge_TakeName : 0U);
    bool const isTooLong = mine.lastEnd > next.key && mine.lastEnd > other.lastEnd && !other.isPoint();
    bool const isTooShort = mine.lastEnd < next.key && other.lastEnd <= next.key && mine.lastEnd < other.lastEnd;
    bool const isNext = next.name != nullptr && std::strcmp(next.name, other.name) == 0;
    return (isTooLong || isTooShort) && !isNext ? flags | merge_ReplaceEnd : flags;
}

/// The steps, one by one.
class Model {
public:
    explicit Model(Rule rule) : m_rule(rule) {}

    /// False if the range is the same thing as one that is there.
    bool add(Range const& newcomer) {
        auto const known = m_lists.find(newcomer.start);
        if (known == m_lists.end()) {
            makeKey(newcomer.start, {&m_ranges.emplace_back(newcomer)});
        } else {
            MergeNext const next = nextOf(known);
            for (Range* const rival : known->second) {
                if (rival->start == newcomer.start && merge(*rival, newcomer, next)) {
                    return false;
                }
            }
            put(known->second, &m_ranges.emplace_back(newcomer));
        }
        propagate(&m_ranges.back());
        return true;
    }
    void addBoundary(Address key) {
        if (m_lists.count(key) == 0) {
            makeKey(key, {});
        }
    }

    /// Those that a client may choose from at an address.
    std::vector<Range const*> candidates(Address address, unsigned int mask) const {
        std::vector<Range const*> found;
        auto const at = floor(address);
        for (std::size_t i = 0; at != m_lists.end() && i < at->second.size(); ++i) {
            Range const* const range = at->second[i];
            if ((range->end > address || range->isPoint()) && (range->kind & mask) != 0) {
                found.push_back(range);
            }
        }
        return found;
    }

    Range const* winner(Address address, unsigned int mask) const {
        Range const* best = nullptr;
        for (Range const* const range : candidates(address, mask)) {
            best = best == nullptr || beats(*range, *best, address) ? range : best;
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
            for (Range const* const range : at->second) {
                if ((at == first || range->start == at->first) && touches(*range, start, end) &&
                    (range->kind & mask) != 0) {
                    text += (text.empty() ? "" : " ") + range->text();
                }
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

    std::string keys() const {
        std::string text;
        for (auto const& [key, list] : m_lists) {
            text += std::to_string(key) + ' ';
        }
        return text;
    }

private:
    using List = std::vector<Range*>;
    using Lists = std::map<Address, List>;

    Lists::const_iterator floor(Address address) const {
        auto const above = m_lists.upper_bound(address);
        return above == m_lists.begin() ? m_lists.end() : std::prev(above);
    }
    MergeNext nextOf(Lists::const_iterator known) const {
        MergeNext next;
        auto const after = std::next(known);
        if (after != m_lists.end()) {
            next.key = after->first;
            for (Range const* const range : after->second) {
                next.name = range->start == after->first ? range->name.c_str() : next.name;
            }
        }
        return next;
    }
    /// Behind all that end later or at the same place.
    static void put(List& list, Range* range) {
        auto const endsSooner = [&](Range const* other) { return other->end < range->end; };
        list.insert(std::find_if(list.begin(), list.end(), endsSooner), range);
    }
    static void take(List& list, Range const* range) { list.erase(std::find(list.begin(), list.end(), range)); }
    /// With what the key before has alive, in its order.
    void makeKey(Address key, List list) {
        auto const before = floor(key);
        for (std::size_t i = 0; before != m_lists.end() && i < before->second.size(); ++i) {
            if (key >= before->second[i]->end) {
                break;
            }
            put(list, before->second[i]);
        }
        m_lists.emplace(key, list);
    }
    void propagate(Range* range) {
        for (auto at = m_lists.upper_bound(range->start); at != m_lists.end() && at->first < range->end; ++at) {
            put(at->second, range);
        }
    }

    bool merge(Range& rival, Range const& newcomer, MergeNext const& next) {
        unsigned int const flags = m_rule(rival.side(), newcomer.side(), next);
        if ((flags & merge_TakeName) != 0) {
            rival.name = newcomer.name;
        }
        if ((flags & merge_TakeSymbolData) != 0) {
            rival.visibility = newcomer.visibility;
        }
        if ((flags & merge_ReplaceEnd) != 0) {
            for (auto at = m_lists.upper_bound(rival.start); at != m_lists.end() && at->first < rival.end;) {
                take(at->second, &rival);
                at = at->second.empty() ? m_lists.erase(at) : std::next(at);
            }
            List& list = m_lists[rival.start];
            take(list, &rival);
            rival.end = newcomer.end;
            put(list, &rival);
            propagate(&rival);
        }
        return flags != merge_Different;
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

    Rule m_rule;
    std::deque<Range> m_ranges;
    Lists m_lists;
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
        for (int i = 0; i < GetParam().ranges; ++i) {
            m_ranges.push_back(randomRange());
        }
        // Raw symbols come to a few scopes.
        std::size_t const oneByOne = GetParam().asRawSymbols ? m_ranges.size() / 8 : m_ranges.size();
        addOneByOne(oneByOne);
        addAsRaw(oneByOne);
    }

    Address below(Address limit) { return m_random() % limit; }
    unsigned int maskOf(int round) { return round % 2 == 0 ? 31 : 1 + static_cast<unsigned int>(below(31)); }

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

    void addOneByOne(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            Range const& range = m_ranges[i];
            if (below(10) == 0) {
                Address const boundary = below(GetParam().space);
                EXPECT_FALSE(m_table->addRange(boundary, boundary, nullptr));
                m_model.addBoundary(boundary);
            }
            add(range);
        }
    }
    void add(Range const& range) {
        SymbolScope* const scope = range.isInline ? new InlineScope(nullptr, nullptr, makeSymbol(range))
                                                  : new SymbolScope(nullptr, nullptr, makeSymbol(range));
        scope->addRange(range.start, range.end);
        EXPECT_EQ(m_table->addRange(range.start, range.end, scope), m_model.add(range)) << range.text();
    }

    void addAsRaw(std::size_t from) {
        // In two goes, so that the second meets the first.
        std::size_t const half = (from + m_ranges.size()) / 2;
        RawSymbolBatch first(half - from);
        RawSymbolBatch second(m_ranges.size() - half);
        for (std::size_t i = from; i < m_ranges.size(); ++i) {
            Range const& range = m_ranges[i];
            (i < half ? first : second)
                .add({range.name.c_str(), range.start, range.end - range.start, range.visibility, range.kind});
            m_model.add(range);
        }
        auto& table = static_cast<SymbolTable&>(*m_table);
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

    std::mt19937 m_random;
    std::vector<Range> m_ranges; ///< Raw symbols have their names here.
    SymMgrObjectPtr<ISymbolTable> m_table = ISymbolTable::create(nullptr);
    Model m_model{plainRule};
};

} // namespace

TEST_P(Oracle, WinnerAtEachAddress) {
    for (unsigned int const mask : {31U, 1U, 4U, 27U, 8U, 20U}) {
        for (Address at = 0; at < GetParam().space + GetParam().longest + 2; ++at) {
            Range const* const expected = m_model.winner(at, mask);
            SymMgrObjectPtr<ISymbolRange> range;
            m_table->symbolRangeByAddress(range, at, static_cast<symbol_kind_t>(mask), nullptr);
            ASSERT_EQ(range ? rangeText(*range) : "none", expected != nullptr ? expected->text() : "none")
                << "at " << at << " with mask " << mask << ", seed " << GetParam().seed;
        }
    }
}

TEST_P(Oracle, ClientsChooseAmongSeveralInOrder) {
    class LastChooser final : public ISymbolChooser {
    public:
        SymMgrObjectPtr<ISymbol> choose(IIterator<SymMgrObjectPtr<ISymbol>>& candidates) override {
            SymMgrObjectPtr<ISymbol> last;
            for (auto symbol = candidates.current(); symbol; symbol = candidates.current()) {
                names += symbol->name();
                last = symbol;
                candidates.next();
            }
            return last;
        }
        std::string names;
    };
    for (int i = 0; i < 300; ++i) {
        Address const at = below(GetParam().space);
        unsigned int const mask = maskOf(i);
        LastChooser chooser;
        SymMgrObjectPtr<ISymbolRange> range;
        m_table->symbolRangeByAddress(range, at, static_cast<symbol_kind_t>(mask), &chooser);
        std::string expected;
        std::vector<Range const*> const candidates = m_model.candidates(at, mask);
        for (std::size_t k = 0; candidates.size() > 1 && k < candidates.size(); ++k) { // one alone is no choice
            expected += candidates[k]->name;
        }
        ASSERT_EQ(chooser.names, expected) << "at " << at << " with mask " << mask;
        ASSERT_EQ(range ? rangeText(*range) : "none", candidates.empty() ? "none" : candidates.back()->text())
            << "at " << at << " with mask " << mask;
    }
}

TEST_P(Oracle, RangesTouchingAStretch) {
    for (int i = 0; i < 400; ++i) {
        Address const start = below(GetParam().space);
        Address const end = below(4) == 0 ? start : start + below(GetParam().space / 8 + 2);
        unsigned int const mask = maskOf(i);
        RangeIterator it;
        m_table->symbolRanges(it, start, end, static_cast<symbol_kind_t>(mask));
        ASSERT_EQ(allRanges(it), m_model.touching(start, end, mask))
            << '[' << start << ',' << end << ") with mask " << mask << ", seed " << GetParam().seed;
    }
}

TEST_P(Oracle, DisjointWalk) {
    for (int i = 0; i < 40; ++i) {
        Address const start = i == 0 ? 0 : below(GetParam().space);
        Address const end = i == 0 ? GetParam().space * 2 : start + below(GetParam().space / 4 + 2);
        unsigned int const mask = maskOf(i);
        RangeIterator it;
        m_table->nonOverlappedSymbolRanges(it, start, end, static_cast<symbol_kind_t>(mask), nullptr);
        ASSERT_EQ(allRanges(it), m_model.pieces(start, end, mask))
            << '[' << start << ',' << end << ") with mask " << mask << ", seed " << GetParam().seed;
        if (!it) {
            continue;
        }
        it->reset();
        for (Address steps = below(8); steps > 0 && it->next(); --steps) {
        }
        if (SymMgrObjectPtr<ISymbolRange> const last = it->current()) { // a load goes on behind the walk's back
            Address const cursor = startOf(*last) + last->size();
            Range late = randomRange();
            late.start = 0;
            late.end = below(GetParam().space);
            add(late);
            it->next();
            ASSERT_EQ(allRanges(it), m_model.pieces(cursor, end, mask)) << "from " << cursor << " with " << late.text();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, Oracle,
    testing::Values(Shape{"Crowded", 1, 300, 60, 40, false}, Shape{"CrowdedRaw", 2, 300, 60, 40, true},
                    Shape{"Nested", 3, 800, 2000, 400, false}, Shape{"NestedRaw", 4, 800, 2000, 400, true},
                    Shape{"Sparse", 5, 1500, 20000, 30, false}, Shape{"SparseRaw", 6, 6000, 60000, 30, true},
                    Shape{"Labels", 7, 500, 3000, 2, false}, Shape{"Equal", 8, 400, 12, 5, false},
                    Shape{"EqualRaw", 9, 400, 12, 5, true}, Shape{"Wide", 10, 900, 4000, 4000, false},
                    Shape{"CrowdRaw", 11, 600, 3, 60, true}),
    [](auto const& info) { return info.param.name; });

namespace {

class TestMaker final : public IScopeMaker {
public:
    class TestScope final : public SymbolScope {
    public:
        TestScope(TestMaker& maker, RangeRecord const& record, Scope* parent)
            : SymbolScope(nullptr, SymbolName::copied(record.name), record.start, parent, record.symbolVisibility(),
                          record.symbolKind()),
              m_maker(maker) {}
        IScopeMaker& maker() override { return m_maker; }
        void takeIn(MergeSide const& other, unsigned int flags, Scope* /*whole*/) override {
            if ((flags & merge_TakeName) != 0) {
                symbolImpl()->setName(other.name);
            }
            symbolImpl()->setVisibility(other.visibility);
        }

    private:
        TestMaker& m_maker;
    };
    Scope* makeScope(RangeRecord const& record, Scope* parent) override { return new TestScope(*this, record, parent); }
    unsigned int mergeRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next) override {
        return changingRule(mine, other, next);
    }
    void matchKeys(MergeSide const& side, MatchRole /*role*/, MatchKeys& out) override {
        std::string name(side.name);
        name[0] = static_cast<char>(std::tolower(name[0]));
        out.add(std::hash<std::string>()(name));
    }
    bool looksAhead() const override { return true; }
    bool givesUnits() const override { return false; }
    bool givesInlines() const override { return false; }
};

std::string textOf(Range const& range) { return range.text() + std::to_string(range.visibility) + ' '; }

/// What may be chosen at an address, in list order.
std::string listAt(SymbolTable& table, Address address, std::map<RangeRecord const*, ISymbol*>& seen) {
    std::string text;
    Address key = 0;
    if (!table.floorKey(address, key) || key > address) {
        return text;
    }
    for (RangeRecord const* const record : table.candidates(address, k_allKinds, key)) {
        ISymbol* const symbol = table.scopeOf(*record)->symbol();
        text += textOf({record->start, record->end, symbol->visibility(), symbol_kind_Function, symbol->name()});
        EXPECT_EQ(symbol, seen.emplace(record, symbol).first->second) << "a client's symbol is the one that others get";
    }
    return text;
}

std::string keysOf(SymbolTable const& table) {
    std::string keys;
    Address key = 0;
    for (bool is = table.keyFrom(0, key); is; is = table.keyAfter(key, key)) {
        keys += std::to_string(key) + ' ';
    }
    return keys;
}

} // namespace

TEST(SymbolTable, MergesAsTheModelDoes) {
    static constexpr char const* names[] = {"a1", "A1", "b1", "B1", "c1", "a2", "A2", "b2", "B2", "c2", "C2", "d1",
                                            "e1", "f1", "g1", "h1", "i1", "j1", "k1", "l1", "m1", "n1", "o1", "p1"};
    /// After the small tables those of many keys, over which a few ranges shrink.
    struct Wide {
        Address longEvery;
        Address shortSpace;
        Address boundaryEvery;
    };
    static constexpr Wide shapes[] = {{30, 30000, 1}, {6, 30000, 10}, {20, 64, 1}};
    for (unsigned int seed = 1; seed <= 300 + std::size(shapes); ++seed) {
        std::mt19937 random(seed);
        auto const below = [&](Address limit) { return random() % limit; };
        bool const isWide = seed > 300;
        Wide const shape = isWide ? shapes[seed - 301] : Wide{1, 1 + below(12), 5};
        Address const space = isWide ? 30000 : shape.shortSpace;
        std::size_t const nameCount = below(2) == 0 ? 5 : std::size(names);
        TestMaker maker;
        SymMgrObjectPtr<SymbolTable> const table(new SymbolTable(nullptr, nullptr));
        Model model(changingRule);
        std::map<RangeRecord const*, ISymbol*> seen;
        std::string history;
        for (int step = 0; step < (isWide ? 12000 : 120); ++step) {
            bool const isLong = isWide && below(shape.longEvery) == 0;
            Address const start = below(isLong ? 4 : shape.shortSpace);
            char const* const name = names[below(isLong ? 3 : nameCount)];
            Address const end = start + (isLong ? space - static_cast<Address>(2 * step) + below(4000) : below(8));
            symbol_visibility_t const visibility = below(2) == 0 ? symbol_visibility_Local : symbol_visibility_Global;
            Range const range{start, end, visibility, symbol_kind_Function, name};
            history += textOf(range);
            MergeSide side = range.side();
            side.name = name; // the table keeps it
            table->addSymbol(maker, side, 0);
            model.add(range);
            if (below(shape.boundaryEvery) == 0) {
                Address const boundary = below(space + 6);
                table->addRange(boundary, boundary, nullptr);
                model.addBoundary(boundary);
                history += std::to_string(boundary) + "| ";
            }
            if (isWide ? step % 3000 != 2999 : below(4) != 0) {
                continue; // so that some have scopes when others merge with them
            }
            for (Address at = 0; at < space + 8; at += 1 + below(isWide ? 100 : 1)) {
                std::string expected;
                for (Range const* const alive : model.candidates(at, k_allKinds)) {
                    expected += textOf(*alive);
                }
                ASSERT_EQ(listAt(*table, at, seen), expected) << "at " << at << ", seed " << seed << ": " << history;
            }
            ASSERT_EQ(keysOf(*table), model.keys()) << "seed " << seed << ": " << history;
        }
    }
}

TEST(SymbolTable, KeysGoWithWhatAloneHasKeptThem) {
    TestMaker maker;
    SymMgrObjectPtr<SymbolTable> const table(new SymbolTable(nullptr, nullptr));
    Model model(changingRule);
    auto const add = [&](char const* name, Address start, Address end) {
        Range const range{start, end, symbol_visibility_Local, symbol_kind_Function, name};
        MergeSide side = range.side();
        side.name = name;
        table->addSymbol(maker, side, 0);
        model.add(range);
    };
    auto const addBoundary = [&](Address key) {
        table->addRange(key, key, nullptr);
        model.addBoundary(key);
    };
    add("a1", 0, 100000);
    add("b1", 1, 50000);
    add("c1", 2, 39997);
    for (Address key = 5; key < 40000; key += 5) { // enough for several blocks
        addBoundary(key);
    }
    add("b1", 1, 30000); // all are kept, and known to be
    addBoundary(39998);  // but this one
    for (auto const& [name, start, end] :
         {std::tuple("a1", 0, 20000), std::tuple("c1", 2, 10), std::tuple("b1", 1, 400), std::tuple("a1", 0, 300)}) {
        add(name, static_cast<Address>(start), static_cast<Address>(end));
        ASSERT_EQ(keysOf(*table), model.keys()) << name << " to " << end;
        addBoundary(35001); // outside or inside, as it comes
        addBoundary(201);
    }
}
