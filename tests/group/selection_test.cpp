#include "group/selection.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "graph/tensor/tensor.h"

namespace {

using vek::TopKHeap;

constexpr size_t FIRST = 7;  // the slot of the first column

template <typename Raw>
void expect_same_as_one_by_one(kern::DType dtype, const std::vector<Raw>& scores, size_t rows,
                               size_t k, float threshold) {
    const size_t columns = scores.size() / rows;
    const orb::CompNode node = orb::CompNode::load("cpu:default");
    orb::HostTensorND tensor(node, kern::TensorShape{rows, columns}, dtype);
    std::copy(scores.begin(), scores.end(), tensor.ptr<Raw>());
    std::vector<TopKHeap> heaps(rows, TopKHeap(k, threshold, columns));
    vek::select_candidates(tensor.as_raw(), FIRST, {}, heaps);
    for (size_t row = 0; row < rows; ++row) {
        TopKHeap wanted(k, threshold, columns);
        for (size_t slot = 0; slot < columns; ++slot)
            wanted.offer(static_cast<uint32_t>(FIRST + slot),
                         static_cast<float>(scores[row * columns + slot]));
        ASSERT_EQ(heaps[row].size(), wanted.size());
        for (size_t i = 0; i < wanted.size(); ++i)
            ASSERT_EQ(heaps[row].slot(i), wanted.slot(i)) << row << " of " << columns;
    }
}

// Scores that tie often, some NaN, some denormal, at every number of columns around the scan's
// width.
TEST(Selection, ScansAsIfOneByOne) {
    std::mt19937 random(1);
    for (size_t columns : std::vector<size_t>{1, 2, 15, 16, 17, 31, 32, 33, 100, 300}) {
        for (size_t k : std::vector<size_t>{1, 3, 20}) {
            for (float threshold : {-INFINITY, -2.0f, 0.0f, 1e-41f, 5.0f, NAN}) {
                std::vector<float> floats(3 * columns);
                for (float& score : floats) {
                    const auto draw = random() % 32;
                    score = draw == 0 ? NAN : draw < 4 ? 1e-40f : static_cast<float>(draw) - 25.0f;
                }
                expect_same_as_one_by_one(kern::DType::Float32(), floats, 3, k, threshold);
                std::vector<int32_t> integers(3 * columns);
                for (int32_t& score : integers)
                    score = static_cast<int32_t>(random() % 8) - 4 + (random() % 2 ? 1 << 25 : 0);
                expect_same_as_one_by_one(
                    kern::DType::Int32(), integers, 3, k,
                    std::isfinite(threshold) ? threshold + 33554432.0f : threshold);
            }
        }
    }
}

}  // namespace
