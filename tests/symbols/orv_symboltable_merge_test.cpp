// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Merging in the symbol table against a plain model: lists of references at each key, changed step by step, under a
/// rule in which names, ends and what stands behind all matter.

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

/// Names are the same but for the case of letters; one in upper case is taken over, as are visibilities. Of two ends
/// the one wins that fits what follows.
unsigned int testRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next) {
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
        return testRule(mine, other, next);
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

/// The steps, one by one.
class Model {
public:
    struct Record {
        char const* name;
        Address start;
        Address end;
        symbol_visibility_t visibility;
    };

    void add(Record const& newcomer) {
        auto const known = m_lists.find(newcomer.start);
        if (known == m_lists.end()) {
            makeKey(newcomer.start, {&m_records.emplace_back(newcomer)});
            propagate(&m_records.back(), 0);
            return;
        }
        auto const after = std::next(known);
        MergeNext next;
        if (after != m_lists.end()) {
            next.key = after->first;
            for (Record const* const record : after->second) {
                next.name = record->start == after->first ? record->name : next.name;
            }
        }
        for (Record* const rival : List(known->second)) {
            if (rival->start == newcomer.start && merge(*rival, newcomer, next)) {
                return;
            }
        }
        Record* const record = &m_records.emplace_back(newcomer);
        put(known->second, record);
        propagate(record, 0);
    }

    void addBoundary(Address key) {
        if (m_lists.count(key) == 0) {
            makeKey(key, {});
        }
    }

    std::string at(Address address) const {
        std::string text;
        auto const above = m_lists.upper_bound(address);
        if (above != m_lists.begin()) {
            for (Record const* const record : std::prev(above)->second) {
                bool const isHeld = record->end > address || record->start == record->end;
                text += isHeld ? textOf(*record) : "";
            }
        }
        return text;
    }
    std::string keys() const {
        std::string text;
        for (auto const& [key, list] : m_lists) {
            text += std::to_string(key) + ' ';
        }
        return text;
    }

    static std::string textOf(Record const& record) {
        return std::string(record.name) + '[' + std::to_string(record.start) + ',' + std::to_string(record.end) + ')' +
               std::to_string(record.visibility) + ' ';
    }

private:
    using List = std::vector<Record*>;

    void makeKey(Address key, List list) {
        auto const behind = m_lists.upper_bound(key);
        if (behind != m_lists.begin()) {
            for (Record* const alive : std::prev(behind)->second) {
                if (key >= alive->end) {
                    break;
                }
                put(list, alive);
            }
        }
        m_lists.emplace(key, list);
    }
    static MergeSide side(Record const& r) {
        return {r.name, r.start, r.end, false, r.visibility, symbol_kind_Function};
    }
    static void put(List& list, Record* record) {
        auto const endsSooner = [&](Record const* other) { return other->end < record->end; };
        list.insert(std::find_if(list.begin(), list.end(), endsSooner), record);
    }
    static void take(List& list, Record const* record) { list.erase(std::find(list.begin(), list.end(), record)); }

    void propagate(Record* record, Address oldSize) {
        for (auto at = m_lists.upper_bound(record->start); at != m_lists.end() && at->first < record->end; ++at) {
            if (at->first >= record->start + oldSize) {
                put(at->second, record);
            }
        }
    }

    bool merge(Record& rival, Record const& newcomer, MergeNext const& next) {
        unsigned int const flags = testRule(side(rival), side(newcomer), next);
        if ((flags & merge_ReplaceEnd) != 0 && rival.start != rival.end) {
            for (auto at = m_lists.upper_bound(rival.start); at != m_lists.end() && at->first < rival.end;) {
                take(at->second, &rival);
                at = at->second.empty() ? m_lists.erase(at) : std::next(at);
            }
        }
        if ((flags & merge_TakeName) != 0) {
            rival.name = newcomer.name;
        }
        if ((flags & merge_TakeSymbolData) != 0) {
            rival.visibility = newcomer.visibility;
        }
        if ((flags & merge_ReplaceEnd) != 0) {
            List& list = m_lists[rival.start];
            take(list, &rival);
            rival.end = newcomer.end;
            put(list, &rival);
            propagate(&rival, 0);
        }
        return flags != merge_Different;
    }

    std::deque<Record> m_records;
    std::map<Address, List> m_lists;
};

/// What may be chosen at an address, in list order.
std::string listAt(SymbolTable& table, Address address, std::map<Address, ISymbol*>& seen) {
    std::string text;
    Address key = 0;
    if (!table.floorKey(address, key) || key > address) {
        return text;
    }
    for (RangeRecord const* const record : table.candidates(address, k_allKinds, key)) {
        ISymbol* const symbol = table.scopeOf(*record)->symbol();
        text += Model::textOf({symbol->name(), record->start, record->end, symbol->visibility()});
        auto const first = seen.emplace(reinterpret_cast<Address>(record), symbol).first;
        EXPECT_EQ(symbol, first->second) << "a client's symbol is the one that others get";
    }
    return text;
}

} // namespace

TEST(SymbolTable, MergesAsTheModelDoes) {
    static constexpr char const* names[] = {"a1", "A1", "b1", "B1", "c1", "a2", "A2", "b2", "B2", "c2", "C2", "d1",
                                            "e1", "f1", "g1", "h1", "i1", "j1", "k1", "l1", "m1", "n1", "o1", "p1"};
    for (unsigned int seed = 1; seed <= 300; ++seed) {
        std::mt19937 random(seed);
        auto const below = [&](Address limit) { return random() % limit; };
        Address const space = 1 + below(12);
        std::size_t const nameCount = below(2) == 0 ? 5 : std::size(names);
        TestMaker maker;
        SymMgrObjectPtr<SymbolTable> const table(new SymbolTable(nullptr, nullptr));
        Model model;
        std::map<Address, ISymbol*> seen;
        std::string history;
        for (int step = 0; step < 120; ++step) {
            Address const start = below(space);
            Model::Record const record{names[below(nameCount)], start, start + below(8),
                                       below(2) == 0 ? symbol_visibility_Local : symbol_visibility_Global};
            history += Model::textOf(record);
            table->addSymbol(
                maker, {record.name, record.start, record.end, false, record.visibility, symbol_kind_Function}, 0);
            model.add(record);
            if (below(5) == 0) {
                Address const boundary = below(space + 6);
                table->addRange(boundary, boundary, nullptr);
                model.addBoundary(boundary);
                history += std::to_string(boundary) + "| ";
            }
            if (below(4) != 0) {
                continue; // so that some have scopes when others merge with them
            }
            for (Address at = 0; at < space + 8; ++at) {
                ASSERT_EQ(listAt(*table, at, seen), model.at(at))
                    << "at " << at << ", seed " << seed << ": " << history;
            }
            std::string keys;
            Address key = 0;
            for (bool is = table->keyFrom(0, key); is; is = table->keyAfter(key, key)) {
                keys += std::to_string(key) + ' ';
            }
            ASSERT_EQ(keys, model.keys()) << "seed " << seed << ": " << history;
        }
    }
}
