// Operators that move elements without arithmetic: TypeCvt, Relayout, and the half conversions.
#include <typeinfo>

#include "kernels/armv7/relayout.h"
#include "kernels/type_cvt.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

void convert(kern::HandleLevel level, const Tensor& src, const Tensor& dst) {
    const auto handle = make_handle(level);
    handle->create_operator<kern::TypeCvt>()->exec(src.raw(), dst.raw());
}

void relayout(kern::HandleLevel level, const Tensor& src, const Tensor& dst) {
    const auto handle = make_handle(level);
    handle->create_operator<kern::Relayout>()->exec(src.raw(), dst.raw());
}

TEST(TypeCvt, EveryPairOfDtypesKeepsValuesThatFit) {
    for (DType from : number_types())
        for (DType to : number_types())
            for (kern::HandleLevel level : LEVELS)
                for (const TensorLayout& layout :
                     {TensorLayout({3, 7}, from), strided({3, 7}, {9, 1}, from),
                      strided({3, 7}, {-1, 4}, from), TensorLayout({1, 7}, from)}) {
                    int next = 0;
                    Tensor src(layout), dst(TensorLayout(layout, to));
                    src.fill([&] { return next++ * 5; });
                    convert(level, src, dst);
                    for (size_t i = 0; i < layout.element_count(); ++i)
                        ASSERT_EQ(dst.get(i), src.get(i)) << from.name() << " " << to.name();
                }
}

TEST(TypeCvt, ValuesThatDoNotFit) {
    const DType f = DType::Float32(), i32 = DType::Int32(), i8 = DType::Int8();
    const struct {
        DType from, to;
        double value, result;
    } cases[] = {
        {f, i8, -1.5, -1},
        {f, i32, 2.99, 2},
        {f, DType::Uint8(), -1, 255},
        {f, i8, 300, 44},
        {f, i32, 3e9, INT32_MAX},
        {f, i32, -3e9, INT32_MIN},
        {f, i32, NAN, 0},
        {i32, i8, 130, -126},
        {i32, DType::Int16(), 65537, 1},
        {DType::Uint8(), i8, 200, -56},
        {i8, DType::Uint8(), -1, 255},
        {f, DType::Float16(), 1e6, INFINITY},
        {DType::Float16(), i32, -INFINITY, INT32_MIN},
        {i32, f, 16777217, 16777216},
    };
    for (const auto& c : cases)
        for (kern::HandleLevel level : LEVELS) {
            Tensor src({11}, c.from), dst({11}, c.to);
            src.fill([&] { return c.value; });
            convert(level, src, dst);
            EXPECT_EQ(dst.get(10), c.result) << c.from.name() << " " << c.to.name() << c.value;
        }
    const Tensor src({2}, f), other({3}, f), bytes({2}, DType::Byte());
    EXPECT_DEATH(convert(FALLBACK, src, other), "");
    EXPECT_DEATH(convert(FALLBACK, src, bytes), "");
    EXPECT_DEATH(convert(FALLBACK, src, Tensor(strided({2}, {2}, f))), "");
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

TEST(Relayout, CopiesInRowMajorOrder) {
    const DType types[] = {DType::Float32(), DType::Int16(), DType::Uint8()};
    for (DType t : types) {
        const struct {
            TensorLayout src, dst;
        } cases[] = {
            {TensorLayout({4, 6}, t), TensorLayout({4, 6}, t)},
            {TensorLayout({4, 6}, t), strided({4, 6}, {20, 1}, t)},  // into columns of a matrix
            {strided({4, 6}, {20, 1}, t), strided({4, 6}, {9, 1}, t)},
            {TensorLayout({4, 1}, t), strided({4, 1}, {20, 1}, t)},
            {TensorLayout({1, 6}, t), strided({1, 6}, {20, 1}, t)},
            {strided({4, 6}, {1, 4}, t), TensorLayout({4, 6}, t)},
            {TensorLayout({4, 6}, t), strided({4, 6}, {-6, -1}, t)},
            {strided({4, 6}, {8, -1}, t), strided({4, 6}, {1, 5}, t)},
            {strided({4, 6}, {0, 1}, t), TensorLayout({4, 6}, t)},
            {strided({4, 6}, {7, 1}, t), strided({2, 2, 6}, {30, 8, 1}, t)},
            {strided({4, 6}, {7, 1}, t), strided({8, 3}, {5, 1}, t)},
            {strided({4, 6}, {7, 1}, t), strided({6, 4}, {5, 1}, t)},  // no common axes
            {strided({4, 3}, {5, 1}, t), strided({2, 3, 2}, {20, 6, 2}, t)},
            {TensorLayout({2, 3, 2, 2}, t).permuted({2, 0, 3, 1}), TensorLayout({4, 6}, t)},
            {TensorLayout({0, 6}, t), TensorLayout({3, 0}, t)},
        };
        for (const auto& c : cases)
            expect_row_major_copy(c.src, c.dst);
    }
    const DType f = DType::Float32();
    const Tensor src({2, 3}, f), other({3, 3}, f), overlapping(strided({2, 3}, {0, 1}, f));
    EXPECT_DEATH(relayout(FALLBACK, src, other), "");
    EXPECT_DEATH(relayout(FALLBACK, src, overlapping), "");
    EXPECT_DEATH(relayout(FALLBACK, src, Tensor({2, 3}, DType::Int32())), "");
}

// Matrices that change their axis order, around the edges of a vector block.
TEST(Relayout, Transposes) {
    for (DType t : {DType::Float32(), DType::QuantizedS32(1), DType::Int16()})
        for (size_t rows : Sizes{1, 3, 4, 5, 8, 33})
            for (size_t columns : Sizes{1, 3, 4, 7, 16, 21}) {
                const auto r = static_cast<ptrdiff_t>(rows), c = static_cast<ptrdiff_t>(columns);
                const TensorShape shape{rows, columns}, planes{2, rows, columns};
                expect_row_major_copy(strided(shape, {1, r}, t), TensorLayout(shape, t));
                expect_row_major_copy(strided(shape, {1, r + 3}, t), strided(shape, {c + 2, 1}, t));
                expect_row_major_copy(TensorLayout(shape, t), strided(shape, {1, r + 1}, t));
                expect_row_major_copy(strided(shape, {1, -r}, t), strided(shape, {-c, 1}, t));
                expect_row_major_copy(TensorLayout({2, columns, rows}, t).permuted({0, 2, 1}),
                                      strided(planes, {r * c + 5, c, 1}, t));
                expect_row_major_copy(strided(shape, {1, 0}, t), TensorLayout(shape, t));
                expect_row_major_copy(strided(shape, {1, 1}, t), TensorLayout(shape, t));
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

TEST(Relayout, ClassesOfTheLevels) {
    const auto class_of = [](const kern::Relayout& op) { return std::string(typeid(op).name()); };
    const std::string classes[] = {typeid(kern::naive::RelayoutImpl).name(),
                                   typeid(kern::fallback::RelayoutImpl).name(),
                                   typeid(kern::armv7::RelayoutImpl).name()};
    for (size_t i = 0; i < 3; ++i) {
        const auto handle = make_handle(LEVELS[i]);
        const auto op = handle->create_operator<kern::Relayout>();
        EXPECT_EQ(class_of(*op), classes[i]);
        EXPECT_EQ(class_of(*handle->relayout_operator()), classes[std::min<size_t>(i, 1)]);
    }
}

}  // namespace
}  // namespace kern_test
