// Relayout, which moves elements without arithmetic, and the half conversions.
#include <algorithm>
#include <numeric>

#include "kernels/armv7/relayout.h"
#include "kernels/operators/relayout.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

void relayout(kern::HandleLevel level, const Tensor& src, const Tensor& dst) {
    const auto handle = make_handle(level);
    handle->create_operator<kern::Relayout>()->exec(src.raw(), dst.raw());
}

// All halves widen to what their fields say; all floats near each half round to the nearest one.
TEST(Float16, TablesFollowTheDefinition) {
    for (uint32_t bits = 0; bits < 0x10000; ++bits) {
        Float16 half;
        half.bits = static_cast<uint16_t>(bits);
        const int exponent = static_cast<int>(bits >> 10 & 31);
        const double mantissa = bits & 0x3ff;
        const double sign = bits & 0x8000 ? -1 : 1;
        const auto value = static_cast<float>(half);
        if (exponent == 31) {
            EXPECT_EQ(std::isnan(value), mantissa != 0);
            EXPECT_EQ(std::isnan(static_cast<float>(Float16(value))), mantissa != 0);
            continue;
        }
        const double magnitude =
            exponent == 0 ? std::ldexp(mantissa, -24) : std::ldexp(1024 + mantissa, exponent - 25);
        ASSERT_EQ(static_cast<double>(value), sign * magnitude);
        ASSERT_EQ(Float16(value).bits, bits);
        const double step = std::ldexp(1.0, exponent == 0 ? -24 : exponent - 25);
        const auto between = [&](double part) {
            return Float16(static_cast<float>(sign * (magnitude + part * step))).bits;
        };
        ASSERT_EQ(between(0.499), bits);
        ASSERT_EQ(between(0.501), bits + 1);
        ASSERT_EQ(between(0.5), bits + (bits & 1));  // a tie goes to the even one
    }
    EXPECT_EQ(Float16(1e-30f).bits, 0);
    EXPECT_EQ(Float16(-1e30f).bits, 0xfc00);
}

void expect_row_major_copy(const TensorLayout& from, const TensorLayout& to) {
    for (kern::HandleLevel level : LEVELS) {
        int next = 1;
        Tensor src(from);
        const Tensor dst(to), wanted(to);
        src.fill([&] { return next++; });
        for (size_t i = 0; i < from.element_count(); ++i)
            wanted.set(i, src.get(i));
        relayout(level, src, dst);
        ASSERT_EQ(dst.bytes(), wanted.bytes())
            << from.to_string() << " " << to.to_string() << " level " << level_name(level);
    }
}

// Axes in any order, with gaps between them or none, walked either way. A source may repeat itself.
TensorLayout any_layout(const TensorShape& shape, DType dtype, bool may_repeat,
                        std::mt19937& random) {
    std::vector<size_t> order(shape.ndim);
    std::iota(order.begin(), order.end(), size_t{0});
    if (random() % 2)
        std::shuffle(order.begin(), order.end(), random);
    std::vector<ptrdiff_t> strides(shape.ndim);
    size_t step = random() % 4 == 0 ? 2 : 1;
    for (size_t i = shape.ndim; i-- > 0; step += random() % 3 == 0 ? random() % 9 : 0) {
        const auto stride = static_cast<ptrdiff_t>(step);
        strides[order[i]] = random() % 6 == 0 ? -stride : stride;
        step *= std::max<size_t>(shape[order[i]], 1);
        if (may_repeat && random() % 6 == 0)
            strides[order[i]] = random() % 2;
    }
    return strided(shape, strides, dtype);
}

TEST(Relayout, CopiesInRowMajorOrder) {
    // Shapes of one count, with common axes and without.
    const std::vector<std::vector<TensorShape>> groups = {
        {{4, 6}, {24}, {2, 2, 6}, {8, 3}, {6, 4}, {2, 3, 2, 2}, {1, 24, 1}, {1, 4, 6}},
        {{4, 3}, {2, 3, 2}, {12, 1}, {1, 12}},
        {{5, 40}, {200}, {10, 20}},
        // Transposed around the edges of a vector block.
        {{33, 21}, {21, 33}, {3, 11, 21}, {3, 7, 33}},
        {{16, 8}, {8, 16}, {4, 32}, {2, 16, 4}, {128}},
        {{5, 7}, {7, 5}},
        {{2, 4, 9}, {2, 9, 4}, {9, 8}},
        {{0, 6}, {3, 0}, {0}}};
    std::mt19937 random(14);
    for (DType dtype : {DType::Float32(), DType::QuantizedS32(1), DType::Int16(), DType::Uint8()})
        for (int round = 0; round < 1000; ++round) {
            const auto& shapes = groups[random() % groups.size()];
            const TensorShape &from = shapes[random() % shapes.size()],
                              &to = shapes[random() % shapes.size()];
            expect_row_major_copy(any_layout(from, dtype, true, random),
                                  any_layout(to, dtype, false, random));
            if (HasFatalFailure())
                return;
        }
}

TEST(Relayout, WhatIsTransposedInBlocks) {
    const auto transposes = [](const TensorLayout& src, DType dtype) {
        const TensorLayout dst(src, dtype);
        return kern::armv7::Transposition::plan(src, dst).has_value();
    };
    const DType f = DType::Float32(), h = DType::Float16();
    EXPECT_TRUE(transposes(strided({4, 5}, {1, 4}, f), f));
    EXPECT_TRUE(transposes(TensorLayout({2, 7, 4}, f).permuted({0, 2, 1}), f));
    EXPECT_TRUE(transposes(strided({4, 4}, {1, 9}, DType::Int32()), DType::Int32()));
    EXPECT_FALSE(transposes(strided({3, 5}, {1, 3}, f), f));
    EXPECT_FALSE(transposes(strided({4, 5}, {2, 8}, f), f));
    EXPECT_FALSE(transposes(strided({4, 5}, {9, 1}, f), f));
    EXPECT_FALSE(transposes(strided({4, 5}, {1, 4}, h), h));
}

}  // namespace
}  // namespace kern_test
