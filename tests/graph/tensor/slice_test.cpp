#include "graph/tensor/slice.h"

#include <gtest/gtest.h>

#include <string>

namespace orb {
namespace {

using kern::DType;
using kern::TensorLayout;
constexpr auto NONE = std::nullopt;

TEST(TensorSlice, CutsAxes) {
    const TensorLayout dense({4, 5}, DType::Float32());
    const TensorLayout flat({6}, DType::Int8());
    const TensorLayout tall({3, 1, 4}, DType::Int8());
    const TensorLayout none({0, 5}, DType::Int8());
    const struct {
        TensorLayout layout;
        int axis;
        TensorSlice slice;
        const char* expected;
        ptrdiff_t offset;
    } cases[] = {
        {dense, 0, {}, "{4(5),5(1)}", 0},
        {dense, 0, {1, 3, NONE}, "{2(5),5(1)}", 5},
        {dense, 1, {1, -1, NONE}, "{4(5),3(1)}", 1},
        {dense, 1, {-4, NONE, 2}, "{4(5),2(2)}", 1},
        {dense, 1, {NONE, NONE, 3}, "{4(5),2(3)}", 0},
        {dense, 1, {2, 2, NONE}, "{4(5),0(1)}", 2},
        {dense, 0, {4, NONE, NONE}, "{0(5),5(1)}", 20},
        {dense, 0, {NONE, NONE, -1}, "{4(-5),5(1)}", 15},
        {dense, 1, {NONE, NONE, -2}, "{4(5),3(-2)}", 4},
        {dense, 1, {3, 0, -1}, "{4(5),3(-1)}", 3},
        {dense, 1, {-2, -5, -1}, "{4(5),3(-1)}", 3},
        {dense, 1, {2, 2, -1}, "{4(5),0(-1)}", 2},
        // One element left: the stride of a dense axis, here and on length-1 axes before.
        {dense, 0, {2, 3, 7}, "{1(5),5(1)}", 10},
        {dense, 1, {2, 3, PTRDIFF_MAX}, "{4(5),1(1)}", 2},
        {dense, 0, {3, NONE, PTRDIFF_MIN}, "{1(5),5(1)}", 15},
        {tall, 2, {NONE, NONE, 2}, "{3(4),1(4),2(2)}", 0},
        {tall, 2, {1, 2, NONE}, "{3(4),1(1),1(1)}", 1},
        {flat, -1, {2, NONE, 2}, "{2(2)}", 2},
        {dense, -1, {3, 8, NONE}, "{5(1)}", 3},
        {none, 0, {}, "{0(5),5(1)}", 0},
    };
    for (const auto& c : cases) {
        const SubTensorRegion region = c.slice.apply(c.layout, c.axis);
        EXPECT_EQ(region.layout().to_string(), c.expected);
        EXPECT_EQ(region.offset_elem(), c.offset) << c.expected;
    }
}

TEST(TensorSliceDeathTest, ImpossibleCutsStop) {
    const TensorLayout layout({4, 5}, DType::Int8());
    const TensorSlice bad[] = {
        {NONE, NONE, 0}, {-6, NONE, NONE}, {NONE, 6, NONE}, {3, 2, NONE},   {NONE, -6, NONE},
        {5, NONE, -1},   {2, 3, -1},       {-6, NONE, -1},  {NONE, -7, -1}, {6, NONE, NONE},
    };
    for (const TensorSlice& slice : bad)
        EXPECT_DEATH(slice.apply(layout, 1), "");
    EXPECT_DEATH(TensorSlice().apply(layout, 2), "");
    EXPECT_DEATH(TensorSlice().apply(layout, -2), "");
    EXPECT_DEATH(TensorSlice().apply(layout.permuted({1, 0}), -1), "");
    EXPECT_DEATH((TensorSlice{NONE, NONE, -1}.apply(TensorLayout({0}, DType::Int8()), 0)), "");
}

TEST(SubTensorRegion, AddsUp) {
    const TensorLayout layout({4}, DType::Int16());
    const SubTensorRegion sum =
        SubTensorRegion(layout, 7) + SubTensorRegion({{2}, DType::Int16()}, -2);
    EXPECT_EQ(sum.offset_elem(), 5);
    EXPECT_EQ(sum.offset_byte(), 10);
    EXPECT_EQ(sum.layout().to_string(), "{2(1)}");
    EXPECT_DEATH(SubTensorRegion(layout, 0) + SubTensorRegion({{2}, DType::Int8()}, 0), "");
    EXPECT_DEATH(SubTensorRegion(TensorLayout(DType::Int8()), 0), "");
    EXPECT_DEATH(SubTensorRegion(TensorLayout({1}, DType::IntB4()), 0).offset_byte(), "");
}

}  // namespace
}  // namespace orb
