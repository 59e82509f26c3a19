// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "core/orv_iterators.h"
#include "core/orv_list.h"
#include "support/orv_test_support.h"

#include <map>
#include <random>
#include <set>

using namespace orv_test;

namespace {

using Numbers =
    SortList<unsigned long long, ListTypeItem<unsigned long long>, ListRemover<ListTypeItem<unsigned long long>>>;

struct Object {
    unsigned int id;
    char tag;
    unsigned int key() const { return id; }
};

} // namespace

TEST(SortList, AgreesWithASetOnRandomInput) {
    std::mt19937 random(4711);
    Numbers list;
    std::set<unsigned long long> model;
    for (int i = 0; i < 3000; ++i) {
        unsigned long long const key = random() % 500;
        EXPECT_EQ(list.insert(key) != nullptr, model.insert(key).second) << key;
    }
    auto expected = model.begin();
    for (auto const* item = list.head(); item != nullptr; item = item->next, ++expected) {
        ASSERT_NE(expected, model.end());
        EXPECT_EQ(item->key, *expected);
    }
    EXPECT_EQ(expected, model.end());
    list.insert(900);
    EXPECT_EQ(list.insert(*model.begin()), nullptr);
    EXPECT_EQ(list.cursor()->key, 900U) << "a key that is there moves nothing";
}

TEST(SortPtrList, PutsTheLaterOfEqualKeysInFront) {
    Object a{2, 'a'};
    Object b{1, 'b'};
    Object c{2, 'c'};
    Object d{2, 'd'};
    Object e{3, 'e'};
    SortPtrList<unsigned int, Object> list;
    for (Object* const object : {&a, &b, &c, &e, &d}) {
        list.insert(object);
    }
    std::string order;
    for (auto const* item = list.head(); item != nullptr; item = item->next) {
        order += item->object->tag;
    }
    EXPECT_EQ(order, "bdcae");
}

TEST(Iterators, WalkLiveCollections) {
    int values[] = {1, 2};
    std::map<unsigned long long, int*> map = {{10, &values[0]}, {20, &values[1]}};
    using Map = MapIteratorWrapper<std::map<unsigned long long, int*>, int*, CFilter<int*, unsigned int>, unsigned int>;
    SymMgrObjectPtr<Map> const it(new Map(map, 5));
    EXPECT_TRUE(it->next());
    EXPECT_EQ(it->current(), &values[1]);
    EXPECT_FALSE(it->next());
    EXPECT_FALSE(it->next());
    EXPECT_EQ(it->current(), nullptr);

    std::vector<int*> vector;
    using Vector = VectorIteratorWrapper<std::vector<int*>, int*>;
    SymMgrObjectPtr<Vector> const live(new Vector(vector));
    EXPECT_EQ(live->current(), nullptr);
    EXPECT_FALSE(live->next());
    vector.push_back(&values[1]);
    EXPECT_EQ(live->current(), &values[1]) << "sees what the vector holds at each call";
}
