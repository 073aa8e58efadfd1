#include "kernels/layout.h"

#include <thread>

#include "kernels/check.h"
#include "kernels/format.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

std::string text(const TensorLayout& layout) {
    return layout.to_string();
}

TEST(Layout, EmptyShapes) {
    EXPECT_EQ(TensorShape().element_count(), 0u);
    EXPECT_TRUE(TensorLayout().is_dense());
    EXPECT_FALSE(TensorLayout().is_dense_allow_broadcast());

    const TensorLayout zero({2, 0, 3}, DType::Float32());
    EXPECT_EQ(text(zero), "{2(0),0(3),3(1)}");
    EXPECT_EQ(text(zero.collapsed()), "{0(1)}");
    EXPECT_FALSE(zero.is_dense());
    EXPECT_TRUE(zero.has_zero_axis());
    EXPECT_EQ(zero.span().high_byte, 0u);
}

TEST(Layout, CollapsedMergesWhatIsContiguous) {
    const DType f = DType::Float32();
    const struct {
        TensorLayout layout;
        const char* collapsed;
    } cases[] = {
        {TensorLayout({2, 3, 4}, f), "{24(1)}"},
        {strided({3, 2}, {1, 3}, f), "{3(1),2(3)}"},
        {strided({2, 1, 3}, {5, 77, 1}, f), "{2(5),3(1)}"},
        {strided({2, 3, 4}, {24, 8, 2}, f), "{24(2)}"},
        {strided({2, 3}, {-3, -1}, f), "{6(-1)}"},
        {strided({1, 1}, {9, 9}, f), "{1(1)}"},
        {TensorLayout({1}, f).broadcast_to({3, 4}), "{12(0)}"},
        {TensorLayout({1, 4}, f).broadcast_to({3, 4}), "{3(0),4(1)}"},
        {TensorLayout({3, 1}, f).broadcast_to({3, 4}), "{3(1),4(0)}"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(text(c.layout.collapsed()), c.collapsed) << text(c.layout);
}

TEST(Layout, Broadcast) {
    const DType f = DType::Float32();
    EXPECT_EQ(text(TensorLayout({1}, f).broadcast_to({2, 1, 3})), "{2(0),1(1),3(0)}");
    EXPECT_EQ(text(TensorLayout({3, 1}, f).broadcast_to({3, 4})), "{3(1),4(0)}");
    EXPECT_EQ(text(TensorLayout({4}, f).broadcast_to({2, 3, 4})), "{2(0),3(0),4(1)}");
    // An axis that is broadcast already takes any length.
    EXPECT_EQ(text(strided({3, 4}, {0, 1}, f).broadcast_to({5, 4})), "{5(0),4(1)}");
    EXPECT_DEATH(TensorLayout({3, 2}, f).broadcast_to({3, 4}), "");
    EXPECT_DEATH(TensorLayout({3, 2}, f).broadcast_to({2}), "");
    EXPECT_DEATH(TensorLayout({1, 2}, f).broadcast_to({0, 2}), "");
}

TEST(Layout, ReshapeNeverMovesData) {
    const DType f = DType::Float32();
    const struct {
        TensorLayout source;
        TensorShape target;
        const char* result;  // null: not possible
    } cases[] = {
        {TensorLayout({2, 3}, f), {2, 1, 3}, "{2(3),1(3),3(1)}"},
        {TensorLayout({2, 3}, f), {3, 2}, "{3(2),2(1)}"},
        {strided({3, 2}, {1, 3}, f), {6}, nullptr},
        {strided({4, 6}, {10, 1}, f), {2, 2, 3, 2}, "{2(20),2(10),3(2),2(1)}"},
        {strided({4, 6}, {10, 1}, f), {8, 3}, nullptr},
        {TensorLayout({1}, f), {1, 1}, "{1(1),1(1)}"},
    };
    for (const auto& c : cases) {
        TensorLayout result;
        ASSERT_EQ(c.source.try_reshape(result, c.target), c.result != nullptr) << text(c.source);
        EXPECT_EQ(c.result ? text(result) : "", c.result ? c.result : "");
    }
    EXPECT_DEATH(TensorLayout({2, 3}, f).reshape({4}), "");
    EXPECT_DEATH(strided({3, 2}, {1, 3}, f).reshape({6}), "");
}

TEST(Layout, Predicates) {
    const DType f = DType::Float32();
    const struct {
        TensorLayout layout;
        bool dense, dense_broadcast, monotonic, non_overlapping;
    } cases[] = {
        {TensorLayout({2, 3}, f), true, true, true, true},
        {strided({2, 1, 3}, {3, 50, 1}, f), true, true, true, true},
        {strided({2, 3}, {4, 1}, f), false, false, true, true},
        {strided({3, 2}, {1, 3}, f), false, false, false, true},
        {strided({2, 3}, {0, 1}, f), false, true, true, false},
        {strided({2, 3}, {2, 1}, f), false, false, false, false},
        {strided({2, 3}, {-3, -1}, f), false, false, true, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.layout.is_dense(), c.dense) << text(c.layout);
        EXPECT_EQ(c.layout.is_dense_allow_broadcast(), c.dense_broadcast) << text(c.layout);
        EXPECT_EQ(c.layout.is_abs_monotonic_allow_broadcast(), c.monotonic) << text(c.layout);
        EXPECT_EQ(c.layout.is_non_overlapping(), c.non_overlapping) << text(c.layout);
    }
    EXPECT_TRUE(TensorLayout({1, 3}, f).same_layout(strided({1, 3}, {9, 1}, f)));
    EXPECT_FALSE(TensorLayout({2, 3}, f).same_layout(strided({2, 3}, {9, 1}, f)));
    EXPECT_DEATH(TensorLayout({2}, f).same_layout(TensorLayout({2}, DType::Int32())), "");
}

TEST(Layout, SpanAndAxisEdits) {
    const kern::Span span = strided({2, 3}, {-4, 2}, DType::Int16()).span();
    EXPECT_EQ(span.low_elem, -4);
    EXPECT_EQ(span.low_byte, -8);
    EXPECT_EQ(span.high_elem, 5u);
    EXPECT_EQ(span.high_byte, 10u);

    TensorLayout layout({2, 3, 4}, DType::Float32());
    EXPECT_EQ(text(layout.permuted({2, 0, 1})), "{4(1),2(12),3(4)}");
    EXPECT_EQ(text(layout.remove_axis(1)), "{2(12),4(1)}");
    layout.insert_axis_inplace(3, 5, 0);
    EXPECT_EQ(text(layout), "{2(12),3(4),4(1),5(0)}");
    EXPECT_DEATH(layout.permuted({0, 1}), "");
    EXPECT_DEATH(layout.remove_axis(4), "");
    EXPECT_DEATH(TensorShape({1, 1, 1, 1, 1, 1, 1, 1}), "");
    EXPECT_DEATH(TensorShape({SIZE_MAX, 2}).element_count(), "");
}

TEST(DType, NumbersSizesAndInterning) {
    EXPECT_EQ(DType::IntB4().byte_size(3), 2u);
    EXPECT_EQ(DType::Float16().byte_size(3), 6u);
    EXPECT_EQ(DType::from_enum(9), DType::Float16());
    EXPECT_EQ(DType::QuantizedS8(0.5f), DType::QuantizedS8(0.5f));
    EXPECT_EQ(DType::QuantizedS32(0.0f), DType::QuantizedS32(-0.0f));
    EXPECT_NE(DType::Quantized8Asymm(0.5f, 1), DType::Quantized8Asymm(0.5f, 2));
    EXPECT_EQ(DType::Quantized8Asymm(0.5f, 7).param<kern::Quantized8AsymmParam>().zero_point, 7);
    // Many threads make the same types.
    std::vector<std::vector<DType>> made(4);
    std::vector<std::thread> threads;
    for (auto& types : made)
        threads.emplace_back([&types] {
            for (int scale = 1; scale <= 2000; ++scale)
                types.push_back(DType::QuantizedS32(static_cast<float>(scale)));
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const auto& types : made)
        EXPECT_TRUE(types == made[0]);
    EXPECT_DEATH(DType::QuantizedS8(NAN), "");
    EXPECT_DEATH(DType::QuantizedS8(1.0f).param<kern::QuantizedS32Param>(), "");
    EXPECT_DEATH(DType::IntB1().size_log2(), "");
    EXPECT_DEATH(DType::from_enum(10), "");
    EXPECT_DEATH(DType::from_enum(100000), "");
}

TEST(Format, SerialisedFormIsReadBack) {
    const kern::TensorFormat* format = kern::default_format();
    EXPECT_EQ(kern::deserialize_format(format->serialize(), nullptr), format);
    EXPECT_DEATH(kern::deserialize_format(format->serialize() + "x", nullptr), "");
    EXPECT_DEATH(kern::deserialize_format(std::string("\x02\0\0\0", 4), nullptr), "");
}

}  // namespace
}  // namespace kern_test
