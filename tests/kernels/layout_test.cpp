// Shapes, layouts and dtypes. A layout is what addresses it visits, in row-major order: views are
// compared by these, over random lengths and strides, negative and zero ones among them.
#include "kernels/types/layout.h"

#include <algorithm>
#include <numeric>
#include <set>

#include "kernels/naive/tensor_iterator.h"
#include "kernels/operators/broadcast.h"
#include "kernels/types/format.h"
#include "tests/kernels/kernel_test_util.h"
#include "tests/threads.h"

namespace kern_test {
namespace {

const DType F32 = DType::Float32();

std::vector<ptrdiff_t> addresses(const TensorLayout& layout) {
    std::vector<ptrdiff_t> result;
    for (size_t i = 0; i < layout.element_count(); ++i)
        result.push_back(offset_of(layout, i));
    return result;
}

// Some neighbouring axes continue each other.
TensorLayout any_layout(std::mt19937& random) {
    TensorLayout layout(DType::Int16());
    layout.ndim = 1 + random() % 5;
    for (size_t axis = layout.ndim; axis-- > 0;) {
        layout[axis] = 1 + random() % 4;
        layout.stride[axis] = static_cast<ptrdiff_t>(random() % 14) - 6;
        if (axis + 1 < layout.ndim && random() % 2)
            layout.stride[axis] =
                layout.stride[axis + 1] * static_cast<ptrdiff_t>(layout[axis + 1]);
    }
    return layout;
}

TEST(Layout, CollapsedVisitsTheSameAddressesWithTheFewestAxes) {
    std::mt19937 random(15);
    for (int round = 0; round < 3000; ++round) {
        const TensorLayout layout = any_layout(random), collapsed = layout.collapsed();
        const std::vector<ptrdiff_t> visited = addresses(layout);
        ASSERT_EQ(addresses(collapsed), visited)
            << layout.to_string() << " " << collapsed.to_string();
        for (size_t axis = 0; axis < collapsed.ndim; ++axis) {
            ASSERT_TRUE(collapsed[axis] != 1 || collapsed.ndim == 1) << collapsed.to_string();
            ASSERT_TRUE(axis == 0 ||
                        collapsed.stride[axis - 1] !=
                            collapsed.stride[axis] * static_cast<ptrdiff_t>(collapsed[axis]))
                << layout.to_string() << " " << collapsed.to_string();
        }
        kern::naive::StridedOffset position(layout);
        for (ptrdiff_t address : visited) {
            ASSERT_EQ(position.get(), address) << layout.to_string();
            position.advance();
        }
        ASSERT_EQ(position.get(), 0) << layout.to_string();

        const auto [least, most] = std::minmax_element(visited.begin(), visited.end());
        const kern::Span span = layout.span();
        ASSERT_EQ(span.low_elem, *least);
        ASSERT_EQ(span.high_elem, static_cast<size_t>(*most + 1));
        ASSERT_EQ(span.low_byte, 2 * *least);
        ASSERT_EQ(span.high_byte, static_cast<size_t>(2 * (*most + 1)));

        std::vector<ptrdiff_t> in_order(visited.size());
        std::iota(in_order.begin(), in_order.end(), ptrdiff_t{0});
        ASSERT_EQ(layout.is_dense(), visited == in_order) << layout.to_string();
        TensorLayout without_repeats = layout;
        for (size_t axis = 0; axis < layout.ndim; ++axis)
            if (layout.stride[axis] == 0)
                without_repeats[axis] = 1;
        ASSERT_EQ(layout.is_dense_allow_broadcast(), without_repeats.is_dense())
            << layout.to_string();
        const std::set<ptrdiff_t> distinct(visited.begin(), visited.end());
        // Strides in one direction only: sums of both are not told apart.
        const bool one_way = *least == 0 || *most == 0;
        ASSERT_TRUE(!one_way || !layout.is_non_overlapping() || distinct.size() == visited.size())
            << layout.to_string();
    }
}

// An axis that is broadcast takes the place of any length; a lone element goes anywhere.
TEST(Layout, BroadcastRepeatsAddresses) {
    std::mt19937 random(16);
    for (int round = 0; round < 3000; ++round) {
        const TensorLayout source = any_layout(random);
        const bool lone = source.ndim == 1 && source[0] == 1;
        TensorShape target;
        target.ndim = source.ndim + random() % (TensorShape::MAX_NDIM - source.ndim + 1);
        const size_t added = target.ndim - source.ndim;
        for (size_t axis = 0; axis < target.ndim; ++axis) {
            const bool free =
                axis < added || source[axis - added] == 1 || source.stride[axis - added] == 0;
            target[axis] = free ? 1 + random() % 3 : source[axis - added];
        }
        const TensorLayout result = source.broadcast_to(target);
        ASSERT_TRUE(result.same_shape(target));
        TensorLayout wanted = strided(target, std::vector<ptrdiff_t>(target.ndim, 0), F32);
        for (size_t axis = added; axis < target.ndim && !lone; ++axis)
            if (source[axis - added] != 1)
                wanted.stride[axis] = source.stride[axis - added];
        ASSERT_EQ(addresses(result), addresses(wanted))
            << source.to_string() << " " << result.to_string();
        const kern::BroadcastSet set({{nullptr, source}}, target);
        ASSERT_EQ(addresses(set.views[0].layout), addresses(wanted)) << source.to_string();
        ASSERT_EQ(set.element_count, target.element_count());
    }
}

// A view exists just where the addresses allow it, whatever is asked for.
TEST(Layout, ReshapeNeverMovesData) {
    std::mt19937 random(17);
    int nr_views = 0;
    for (int round = 0; round < 6000; ++round) {
        const TensorLayout source = any_layout(random);
        std::vector<size_t> factors;
        for (size_t rest = source.element_count(); rest > 1;) {
            const size_t factor = rest % 2 == 0 ? 2 : rest % 3 == 0 ? 3 : rest;
            factors.push_back(factor);
            rest /= factor;
        }
        factors.insert(factors.end(), 2, 1);
        std::shuffle(factors.begin(), factors.end(), random);
        while (factors.size() > 1 + random() % 5 || factors.size() > TensorShape::MAX_NDIM) {
            const size_t last = factors.back();
            factors.pop_back();
            factors[random() % factors.size()] *= last;
        }
        const TensorShape target(factors);
        const std::vector<ptrdiff_t> visited = addresses(source);
        // The strides that the first element of each axis shows, if they explain all others.
        std::vector<ptrdiff_t> strides(target.ndim);
        size_t step = 1;
        for (size_t axis = target.ndim; axis-- > 0; step *= target[axis])
            strides[axis] = target[axis] == 1 ? 0 : visited[step];
        const bool exists = addresses(strided(target, strides, F32)) == visited;
        TensorLayout result;
        ASSERT_EQ(source.try_reshape(result, target), exists)
            << source.to_string() << " to " << target.to_string();
        if (exists) {
            ++nr_views;
            ASSERT_TRUE(result.same_shape(target));
            ASSERT_EQ(addresses(result), visited)
                << source.to_string() << " " << result.to_string();
        }
    }
    EXPECT_TRUE(nr_views > 500 && nr_views < 5500) << nr_views;
}

TEST(Layout, FormsThatAreFixed) {
    EXPECT_EQ(TensorShape().element_count(), 0u);
    EXPECT_TRUE(TensorLayout().is_dense());
    EXPECT_FALSE(TensorLayout().is_dense_allow_broadcast());
    const TensorLayout zero({2, 0, 3}, F32);
    EXPECT_EQ(zero.to_string(), "{2(0),0(3),3(1)}");
    EXPECT_EQ(zero.collapsed().to_string(), "{0(1)}");
    EXPECT_FALSE(zero.is_dense());
    EXPECT_TRUE(zero.has_zero_axis());
    EXPECT_EQ(zero.span().high_byte, 0u);

    TensorLayout layout({2, 3, 4}, F32);
    EXPECT_EQ(strided({1, 1}, {9, 9}, F32).collapsed().to_string(), "{1(1)}");
    EXPECT_EQ(layout.permuted({2, 0, 1}).to_string(), "{4(1),2(12),3(4)}");
    EXPECT_EQ(layout.remove_axis(1).to_string(), "{2(12),4(1)}");
    EXPECT_EQ(TensorLayout({1}, F32).broadcast_to({2, 1, 3}).to_string(), "{2(0),1(1),3(0)}");
    layout.insert_axis_inplace(3, 5, 0);
    EXPECT_EQ(layout.to_string(), "{2(12),3(4),4(1),5(0)}");
    EXPECT_TRUE(TensorLayout({1, 3}, F32).same_layout(strided({1, 3}, {9, 1}, F32)));
    EXPECT_FALSE(TensorLayout({2, 3}, F32).same_layout(strided({2, 3}, {9, 1}, F32)));
}

TEST(Layout, Predicates) {
    const struct {
        TensorLayout layout;
        bool monotonic, non_overlapping;
    } cases[] = {
        {TensorLayout({2, 3}, F32), true, true},
        {strided({2, 1, 3}, {3, 50, 1}, F32), true, true},
        {strided({2, 3}, {4, 1}, F32), true, true},
        {strided({3, 2}, {1, 3}, F32), false, true},
        {strided({2, 3}, {0, 1}, F32), true, false},
        {strided({2, 3}, {2, 1}, F32), false, false},
        {strided({2, 3}, {-3, -1}, F32), true, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.layout.is_abs_monotonic_allow_broadcast(), c.monotonic) << c.layout.to_string();
        EXPECT_EQ(c.layout.is_non_overlapping(), c.non_overlapping) << c.layout.to_string();
    }
}

// As stored in graph files and as error texts have them.
TEST(DType, TableOfTypes) {
    using Category = kern::DTypeCategory;
    using Sign = kern::DTypeSignedness;
    const struct {
        DType dtype;
        uint32_t number;
        const char* name;
        size_t bits;
        Category category;
        Sign sign;
    } rows[] = {
        {DType::Float32(), 0, "Float32", 32, Category::FLOAT, Sign::SIGNED},
        {DType::Uint8(), 1, "Uint8", 8, Category::INTEGER, Sign::UNSIGNED},
        {DType::Int8(), 2, "Int8", 8, Category::INTEGER, Sign::SIGNED},
        {DType::Int16(), 3, "Int16", 16, Category::INTEGER, Sign::SIGNED},
        {DType::Int32(), 4, "Int32", 32, Category::INTEGER, Sign::SIGNED},
        {DType::IntB1(), 5, "IntB1", 1, Category::LOW_BIT, Sign::NONE},
        {DType::IntB2(), 6, "IntB2", 2, Category::LOW_BIT, Sign::NONE},
        {DType::IntB4(), 7, "IntB4", 4, Category::LOW_BIT, Sign::NONE},
        {DType::Byte(), 8, "Byte", 8, Category::NONE, Sign::NONE},
        {DType::Float16(), 9, "Float16", 16, Category::FLOAT, Sign::SIGNED},
        {DType::Quantized8Asymm(1, 2), 100000, "Quantized8Asymm", 8, Category::QUANTISED,
         Sign::SIGNED},
        {DType::QuantizedS32(1), 100001, "QuantizedS32", 32, Category::QUANTISED, Sign::SIGNED},
        {DType::QuantizedS8(1), 100002, "QuantizedS8", 8, Category::QUANTISED, Sign::SIGNED},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_STREQ(row.dtype.name(), row.name);
        EXPECT_STREQ(row.dtype.name_or_invalid(), row.name);
        EXPECT_EQ(static_cast<uint32_t>(row.dtype.enum_value()), row.number);
        EXPECT_EQ(row.dtype.category(), row.category);
        EXPECT_EQ(row.dtype.signedness(), row.sign);
        EXPECT_EQ(row.dtype.is_low_bit(), row.bits < 8);
        EXPECT_EQ(row.dtype.low_bits(), row.bits < 8 ? row.bits : 0);
        EXPECT_EQ(row.dtype.record()->has_param, row.number > 9);
        for (size_t count : Sizes{0, 1, 3, 8, 9})
            EXPECT_EQ(row.dtype.byte_size(count), (count * row.bits + 7) / 8);
        const bool is_plain = row.number <= 9, in_bytes = row.bits >= 8;
        EXPECT_EQ(is_plain ? DType::from_enum(row.number) : row.dtype, row.dtype);
        EXPECT_EQ(in_bytes ? row.dtype.element_bytes() * 8 : row.bits, row.bits);
    }
    EXPECT_STREQ(DType().name_or_invalid(), "invalid");
}

TEST(DType, EqualParametersMakeOneType) {
    EXPECT_EQ(DType::QuantizedS8(0.5f), DType::QuantizedS8(0.5f));
    EXPECT_EQ(DType::QuantizedS32(0.0f), DType::QuantizedS32(-0.0f));
    EXPECT_NE(DType::Quantized8Asymm(0.5f, 1), DType::Quantized8Asymm(0.5f, 2));
    EXPECT_EQ(DType::Quantized8Asymm(0.5f, 7).param<kern::Quantized8AsymmParam>().zero_point, 7);
    // Many threads make the same types.
    std::vector<std::vector<DType>> made(4);
    run_together(made.size(), [&made](size_t t) {
        for (int scale = 1; scale <= 2000; ++scale)
            made[t].push_back(DType::QuantizedS32(static_cast<float>(scale)));
    });
    for (const auto& types : made)
        EXPECT_TRUE(types == made[0]);
}

}  // namespace
}  // namespace kern_test
