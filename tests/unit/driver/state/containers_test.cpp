// Each container beside the plainest thing that could be right.

#include "tests/unit/driver/support.h"

#include <algorithm>
#include <list>
#include <set>

namespace kalix::test {
namespace {

std::vector<uintptr_t> contents(const linkedlist<uintptr_t>* list)
{
    std::vector<uintptr_t> out;
    for (const auto* node = list->head; node; node = node->next)
        out.push_back(node->data);
    return out;
}

TEST_F(driver_test, LinkedListWalksLikeAList)
{
    std::mt19937 random{test_seed()};
    linkedlist<uintptr_t>* const list = linkedlist_create<uintptr_t>();
    std::list<uintptr_t> model;
    for (int step = 0; step < 5000; ++step) {
        const uintptr_t value = below(random, 6); // 0 is refused
        switch (below(random, 5)) {
        case 0:
        case 1:
            ASSERT_EQ(linkedlist_insert_tail(list, value), value == 0) << test_seed() << " step " << step;
            if (value != 0)
                model.push_back(value);
            break;
        case 2: {
            const auto at = std::ranges::find(model, value);
            ASSERT_EQ(linkedlist_remove(list, value), at == model.end()) << test_seed() << " step " << step;
            if (at != model.end())
                model.erase(at);
            break;
        }
        case 3:
            ASSERT_EQ(linkedlist_pop_first(list), model.empty() ? 0 : model.front());
            if (!model.empty())
                model.pop_front();
            break;
        default:
            fail_allocation(1);
            ASSERT_EQ(linkedlist_insert_tail(list, uintptr_t{9}), 1);
        }
        ASSERT_EQ(contents(list), std::vector(model.begin(), model.end())) << test_seed() << " step " << step;
        ASSERT_EQ(list->count, static_cast<int32_t>(model.size()));
        ASSERT_EQ(linkedlist_is_empty(list), model.empty());
        ASSERT_EQ(list->tail ? list->tail->data : 0, model.empty() ? 0 : model.back());
    }
    linkedlist_destroy(list);
    const linkedlist<uintptr_t>* const none = nullptr;
    EXPECT_EQ(linkedlist_is_empty(none), 0);
    EXPECT_EQ(linkedlist_insert_tail<int>(nullptr, 1), 1);
    linkedlist_destroy<int>(nullptr);
}

std::vector<const char*> walk(const hashtable<char>* table)
{
    hashtable_iterator<char>* const at = hashtable_iterator_create<char>();
    std::vector<const char*> out;
    while (const char* const value = hashtable_iterate(table, at))
        out.push_back(value);
    EXPECT_EQ(hashtable_iterate(table, at), nullptr);
    hashtable_iterator_destroy(at);
    return out;
}

TEST_F(driver_test, HashTableWalksLikeBucketsOfPairs)
{
    using pair = std::pair<uint32_t, const char*>;
    std::mt19937 random{test_seed()};
    for (const int32_t size : {1, 3, 128}) {
        hashtable<char>* const table = hashtable_create<char>(size);
        std::vector<std::vector<pair>> model(static_cast<size_t>(size));
        std::vector<char> values(3000);
        for (size_t step = 0; step < values.size(); ++step) {
            const uint32_t key = below(random, 40);
            auto& bucket = model[key % static_cast<uint32_t>(size)];
            const auto at = std::ranges::find(bucket, key, &pair::first);
            if (below(random, 2)) {
                ASSERT_EQ(hashtable_insert(table, key, &values[step]), 0);
                bucket.emplace_back(key, &values[step]);
            } else {
                ASSERT_EQ(hashtable_remove(table, key), at == bucket.end()) << test_seed() << " step " << step;
                if (at != bucket.end())
                    bucket.erase(at);
            }
            const auto first = std::ranges::find(bucket, key, &pair::first);
            ASSERT_EQ(hashtable_get(table, key), first == bucket.end() ? nullptr : first->second);
        }
        std::vector<const char*> all;
        std::map<const char*, uint32_t> keys;
        for (const auto& bucket : model)
            for (const auto& [key, value] : bucket) {
                all.push_back(value);
                keys[value] = key;
            }
        EXPECT_EQ(walk(table), all) << test_seed();
        EXPECT_EQ(table->count, static_cast<int32_t>(all.size()));
        hashtable_destroy(table, [&](const char* value) {
            EXPECT_EQ(keys.count(value), 1u);
            hashtable_remove(table, keys[value]);
            keys.erase(value);
        });
        EXPECT_TRUE(keys.empty());
    }
}

TEST_F(driver_test, HashTableLeavesNothingBehindWithoutMemory)
{
    for (int nth = 1;; ++nth) {
        fail_allocation(nth);
        hashtable<int>* const table = hashtable_create<int>(4);
        fail_allocation(0);
        if (table) {
            hashtable_destroy(table);
            break;
        }
        ASSERT_LT(nth, 20);
    }
    hashtable<int>* const table = hashtable_create<int>(1);
    int value = 0;
    for (const int nth : {1, 2}) {
        fail_allocation(nth);
        EXPECT_EQ(hashtable_insert(table, 1, &value), 1);
        EXPECT_EQ(table->count, 0);
        EXPECT_EQ(hashtable_get(table, 1), nullptr);
    }
    EXPECT_EQ(hashtable_insert(table, 1, nullptr), 1);
    hashtable_destroy(table);
    EXPECT_EQ(hashtable_create<int>(0), nullptr);
    EXPECT_EQ(hashtable_is_empty<int>(nullptr), 1);
}

uint32_t lowest_gap(const std::set<uint32_t>& in_use, uint32_t capacity)
{
    for (uint32_t id = 1; id <= capacity; ++id)
        if (!in_use.contains(id))
            return id;
    return 0;
}

TEST_F(driver_test, IdPoolWalksLikeASetOfIds)
{
    for (const uint32_t capacity : {1u, 8u, 32u, 33u, 246u}) {
        SCOPED_TRACE(testing::Message() << "capacity " << capacity << ", seed " << test_seed());
        std::mt19937 random{test_seed()};
        id_pool pool;
        id_init_pool(&pool, capacity);
        std::set<uint32_t> in_use;
        for (int step = 0; step < 5000; ++step) {
            const uint32_t id = below(random, capacity + 3); // 0 and beyond the capacity too
            switch (below(random, 4)) {
            case 0:
                id_release(&pool, id);
                in_use.erase(id);
                break;
            case 1:
                id_take(&pool, id);
                if (id >= 1 && id <= capacity)
                    in_use.insert(id);
                break;
            default: {
                const uint32_t expected = lowest_gap(in_use, capacity);
                ASSERT_EQ(id_get(&pool), expected) << "step " << step;
                if (expected != 0)
                    in_use.insert(expected);
            }
            }
            ASSERT_EQ(pool.usecount, in_use.size()) << "step " << step;
        }
        while (id_get(&pool) != 0) {
        }
        EXPECT_TRUE(take_lines().empty());
        pool.usecount = 0; // an inconsistency that only a fault could make
        if (capacity == 32) {
            EXPECT_EQ(id_get(&pool), 0u);
            EXPECT_EQ(take_lines(), std::vector<std::string>{"2 kalix: id_get: usecount is invalid!"});
        }
        id_destroy_pool(&pool);
        EXPECT_EQ(id_get(&pool), 0u);
    }
}

} // namespace
} // namespace kalix::test
