#include "group/top_k_heap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "tests/group/heap_model.h"

namespace {

using vek::TopKHeap;

uint32_t bits(float value) {
    uint32_t word;
    std::memcpy(&word, &value, sizeof(word));
    return word;
}

void expect_equal(const TopKHeap& heap, const HeapModel& model) {
    ASSERT_EQ(heap.size(), model.n());
    for (size_t i = 0; i < heap.size(); ++i) {
        ASSERT_EQ(heap.slot(i), model.at[i + 1].second) << "place " << i;
        ASSERT_EQ(bits(heap.raw(i)), bits(model.at[i + 1].first)) << "place " << i;
    }
}

TEST(TopKHeap, KeepsEveryStepOfThePlainHeap) {
    constexpr float INF = std::numeric_limits<float>::infinity();
    const float nan = std::nanf("");
    const float thresholds[] = {-INF, -3.0f, -0.0f, 2.0f, INF, nan};
    std::mt19937 random(5);
    for (int round = 0; round < 3000; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const size_t k = random() % 12;
        const auto columns = static_cast<uint32_t>(random() % 40);
        const size_t spread = 1 + random() % 8;  // few values, many ties
        const float threshold = thresholds[random() % 6];
        const bool with_nan = random() % 4 == 0;
        TopKHeap heap(k, threshold, std::min<size_t>(k, columns));
        HeapModel model{k, threshold};
        for (uint32_t slot = 0; slot < columns; ++slot) {
            float raw = static_cast<float>(static_cast<int>(random() % spread) - 3);
            if (with_nan && random() % 5 == 0)
                raw = random() % 2 ? nan : INF;
            heap.offer(slot, raw);
            model.offer(slot, raw);
            expect_equal(heap, model);
        }
        heap.sort();
        model.sort();
        expect_equal(heap, model);
    }
}

TEST(TopKHeap, AmongEqualsTheLaterSlotWins) {
    TopKHeap heap(2, -1.0f, 2);
    for (uint32_t slot : {0u, 1u, 2u})
        heap.offer(slot, 0.0f);
    EXPECT_EQ(heap.slot(0), 0u);
    EXPECT_EQ(heap.slot(1), 2u);
    heap.sort();
    EXPECT_EQ(heap.slot(0), 2u);
    EXPECT_EQ(heap.slot(1), 0u);
}

}  // namespace
