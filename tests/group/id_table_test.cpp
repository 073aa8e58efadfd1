#include "group/id_table.h"

#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <unordered_map>
#include <vector>

#include "group/unaligned.h"

namespace {

using vek::IdTable;

void expect_equal(const IdTable& table, const std::unordered_map<uint64_t, uint32_t>& model,
                  uint64_t pool) {
    ASSERT_EQ(table.size(), model.size());
    for (uint64_t id = 0; id < pool; ++id) {
        const auto found = model.find(id);
        const uint32_t* slot = table.find(id);
        ASSERT_EQ(slot != nullptr, found != model.end()) << "id " << id;
        ASSERT_TRUE(!slot || *slot == found->second) << "id " << id;
    }
}

TEST(IdTable, WalksLikeAnUnorderedMap) {
    // A small pool fills and empties the table many times over, in long runs of buckets.
    for (uint64_t pool : {3u, 40u, 700u}) {
        const unsigned seed = 17 + static_cast<unsigned>(pool);
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        IdTable table;
        std::unordered_map<uint64_t, uint32_t> model;
        for (uint32_t step = 0; step < 6000; ++step) {
            const uint64_t id = random() % pool;
            const bool growing = step / 1500 % 2 == 0;
            if (random() % 4 != (growing ? 0u : 1u) && growing) {
                ASSERT_EQ(table.insert(id, step).has_value(), !model.emplace(id, step).second);
            } else if (model.count(id) != 0 && random() % 3 == 0) {
                table.assign(id, step);
                model[id] = step;
            } else if (model.erase(id) != 0) {
                table.erase(id);
            }
            if (step % 1000 == 999)
                table.shrink();
            if (step % 97 == 0)
                expect_equal(table, model, pool);
        }
        expect_equal(table, model, pool);
        table.clear();
        expect_equal(table, {}, pool);
    }
}

TEST(IdTable, HasTheRoomThatIsAskedFor) {
    for (size_t entries : {1u, 4u, 5u, 6u, 7u, 13u, 100u, 1000u}) {
        IdTable table;
        table.reserve(entries);
        EXPECT_EQ(table.find(IdTable::RESERVED_ID), nullptr);
        for (size_t i = 0; i < entries; ++i) {
            ASSERT_FALSE(table.grown(i + 1)) << i << " of " << entries;
            table.insert(i, 0);
        }
        EXPECT_TRUE(table.grown(4 * entries + 8));
        for (size_t i = 1; i < entries; ++i)
            table.erase(i);
        table.shrink();
        EXPECT_TRUE(table.grown(8));
        EXPECT_THROW(table.reserve(SIZE_MAX / 2), std::length_error);
        EXPECT_EQ(*table.find(0), 0u);
    }
}

TEST(ForEachId, PrefetchesIdsThatComeLater) {
    for (const size_t nr : std::vector<size_t>{0, 1, 32, 33, 100}) {
        std::vector<uint64_t> ids(nr), ahead, used;
        std::iota(ids.begin(), ids.end(), uint64_t{1000});
        const auto use = [&](uint64_t id, size_t place) {
            EXPECT_EQ(place, used.size());
            used.push_back(id);
        };
        vek::for_each_id(
            ids.data(), nr, [&](uint64_t id) { ahead.push_back(id); }, use);
        EXPECT_EQ(used, ids);
        ids.erase(ids.begin(), ids.end() - static_cast<ptrdiff_t>(nr > 32 ? nr - 32 : 0));
        EXPECT_EQ(ahead, ids);
    }
}

}  // namespace
