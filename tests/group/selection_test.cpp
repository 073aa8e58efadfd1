#include "group/selection.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "graph/tensor/tensor.h"
#include "tests/group/heap_model.h"

namespace {

using vek::TopKHeap;

constexpr size_t FIRST = 7;  // the slot of the first column
constexpr size_t ROWS = 3;

void expect_equal(const TopKHeap& heap, const HeapModel& model) {
    ASSERT_EQ(heap.size(), model.n());
    for (size_t i = 0; i < heap.size(); ++i) {
        ASSERT_EQ(heap.slot(i), model.at[i + 1].second) << "place " << i;
        const float raw = heap.raw(i);
        ASSERT_EQ(std::memcmp(&raw, &model.at[i + 1].first, sizeof(raw)), 0) << "place " << i;
    }
}

// In heap order and sorted.
template <typename Raw>
void expect_as_one_by_one(kern::DType dtype, const std::vector<Raw>& scores, size_t k,
                          float threshold) {
    const size_t columns = scores.size() / ROWS;
    const orb::CompNode node = orb::CompNode::load("cpu:default");
    orb::HostTensorND tensor(node, kern::TensorShape{ROWS, columns}, dtype);
    std::copy(scores.begin(), scores.end(), tensor.ptr<Raw>());
    std::vector<TopKHeap> heaps(ROWS, TopKHeap(k, threshold, std::min(k, columns)));
    vek::select_candidates(tensor.as_raw(), FIRST, {}, heaps);
    for (size_t row = 0; row < ROWS; ++row) {
        HeapModel wanted{k, threshold};
        for (size_t column = 0; column < columns; ++column)
            wanted.offer(static_cast<uint32_t>(FIRST + column),
                         static_cast<float>(scores[row * columns + column]));
        expect_equal(heaps[row], wanted);
        heaps[row].sort();
        wanted.sort();
        expect_equal(heaps[row], wanted);
    }
}

// Scores that tie often, some NaN or infinite, some denormal; columns around the scan's width and
// around the places.
TEST(Selection, IsThatOfThePlainHeapOneByOne) {
    std::mt19937 random(1);
    const float thresholds[] = {-INFINITY, -3.0f, -0.0f, 1e-41f, 2.0f, INFINITY, NAN};
    for (size_t round = 0; round < 4000; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const size_t k = random() % 4 == 0 ? 20 : random() % 12;
        const size_t columns = round % 16 == 0 ? 100 + random() % 200 : 1 + random() % 40;
        const size_t spread = 1 + random() % 24;  // of few values come many ties
        const size_t odd_values = random() % 4 == 0 ? 6 : 0;
        const float threshold = thresholds[random() % 7];
        std::vector<float> floats(ROWS * columns);
        std::vector<int32_t> integers(ROWS * columns);
        for (size_t i = 0; i < floats.size(); ++i) {
            const float odd[] = {NAN, NAN, INFINITY, 1e-40f, 1e-40f, -1e-42f};
            const size_t draw = random() % 30;
            const auto value = static_cast<int32_t>(random() % spread) - 3;
            floats[i] = draw < odd_values ? odd[draw] : static_cast<float>(value);
            integers[i] = value + (random() % 2 ? 1 << 25 : 0);
        }
        expect_as_one_by_one(kern::DType::Float32(), floats, k, threshold);
        const bool moved = std::isfinite(threshold);
        expect_as_one_by_one(kern::DType::Int32(), integers, k,
                             moved ? threshold + 33554432.0f : threshold);
    }
}

}  // namespace
