#include "kernels/image_format.h"

#include <thread>

#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::image_pack4_format;

TensorLayout image(const TensorShape& shape, const std::vector<ptrdiff_t>& strides,
                   size_t align_axis, size_t align_bytes, DType dtype = DType::Float32()) {
    TensorLayout layout = strided(shape, strides, dtype);
    layout.format = image_pack4_format(align_axis, align_bytes);
    return layout;
}

TEST(ImageFormat, StridesPutRowsOnTheAlignment) {
    const struct {
        TensorShape shape;
        size_t align_axis, align_bytes;
        DType dtype;
        const char* text;
        size_t count;
    } cases[] = {
        {{5, 3, 4}, 1, 64, DType::Float32(), "{5(16),3(4),4(1) @ I2D{1,64}}", 80},
        {{2, 5, 3, 4}, 2, 64, DType::Float16(), "{2(160),5(32),3(4),4(1) @ I2D{2,64}}", 320},
        {{5, 4, 4}, 1, 64, DType::Float32(), "{5(16),4(4),4(1) @ I2D{1,64}}", 80},
        {{5, 3, 4}, 1, 2, DType::Float32(), "{5(12),3(4),4(1) @ I2D{1,2}}", 60},
        {{5, 3, 4}, 2, 16, DType::Int8(), "{5(48),3(16),4(1) @ I2D{2,16}}", 240},
    };
    for (const auto& c : cases) {
        const auto* format = image_pack4_format(c.align_axis, c.align_bytes);
        TensorLayout layout(c.shape, c.dtype, format);
        EXPECT_EQ(layout.to_string(), c.text);
        EXPECT_EQ(layout.fill_strides(), c.count);
        EXPECT_TRUE(layout.is_dense());
        EXPECT_EQ(layout.span().high_elem, c.count);
        EXPECT_EQ(layout.span().high_byte, c.dtype.byte_size(c.count));
    }
    TensorLayout none(DType::Float32(), image_pack4_format(1, 64));
    EXPECT_EQ(none.fill_strides(), 0u);
    EXPECT_TRUE(none.is_dense());
}

TEST(ImageFormat, DenseAllowsALargerPitchOfWholeUnits) {
    const struct {
        std::vector<ptrdiff_t> strides;
        bool dense;
    } cases[] = {
        {{48, 16, 4, 1}, true},  {{96, 32, 4, 1}, true},  {{48, 32, 4, 1}, false},
        {{60, 20, 4, 1}, false}, {{36, 12, 4, 1}, false}, {{64, 16, 4, 1}, false},
        {{0, 16, 4, 1}, false},  {{48, 16, 5, 1}, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(image({2, 3, 3, 4}, c.strides, 2, 64).is_dense(), c.dense) << c.strides[0];
    EXPECT_FALSE(image({2, 3, 5, 4}, {48, 16, 4, 1}, 2, 64).is_dense());  // rows overlap
    EXPECT_FALSE(image({2, 0, 3, 4}, {0, 16, 4, 1}, 2, 64).is_dense());
}

TEST(ImageFormat, CollapsedNeverMergesAcrossTheRow) {
    const struct {
        TensorLayout layout;
        const char* collapsed;
    } cases[] = {
        // Without padding too, rows and what is inside them stay two axes.
        {TensorLayout({5, 4, 4}, DType::Float32(), image_pack4_format(1, 64)),
         "{5(16),16(1) @ I2D{1,64}}"},
        {TensorLayout({2, 5, 3, 4}, DType::Float32(), image_pack4_format(2, 64)),
         "{10(16),12(1) @ I2D{1,64}}"},
        {image({2, 5, 3, 4}, {160, 16, 4, 1}, 2, 64), "{2(160),5(16),12(1) @ I2D{2,64}}"},
        {image({2, 5, 3, 4}, {80, 16, 8, 1}, 2, 64), "{10(16),3(8),4(1) @ I2D{1,64}}"},
        {image({1, 5, 1, 4}, {7, 16, 9, 1}, 2, 64), "{5(16),4(1) @ I2D{1,64}}"},
        {image({1, 1, 1, 4}, {16, 16, 4, 1}, 2, 64), "{1(16),4(1) @ I2D{1,64}}"},
        {image({3, 1, 1, 2, 4}, {32, 16, 8, 4, 1}, 2, 64), "{3(32),1(16),8(1) @ I2D{2,64}}"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.layout.collapsed().to_string(), c.collapsed) << c.layout.to_string();
}

TEST(ImageFormat, SpanCoversWholeRows) {
    const struct {
        TensorLayout layout;
        size_t bytes;
    } cases[] = {
        {image({2, 5, 3, 4}, {80, 16, 4, 1}, 2, 64), 2 * 5 * 64},
        {image({2, 5, 3, 4}, {0, 32, 4, 1}, 2, 64), 5 * 128},  // a broadcast axis adds no rows
        {image({2, 5, 3, 4}, {16, 0, 4, 1}, 2, 64), 2 * 64},   // the pitch is further out
        {image({2, 5, 3, 4}, {12, 0, 4, 1}, 2, 64), 2 * 48},   // only the nearest is aligned
        {image({2, 5, 17, 4}, {0, 0, 4, 1}, 2, 64), 320},      // one row, rounded up
        {image({2, 5, 3, 4}, {0, 0, 0, 1}, 2, 4, DType::Int8()), 4},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.layout.span().high_byte, c.bytes) << c.layout.to_string();
        EXPECT_EQ(c.layout.span().high_elem, c.bytes / c.layout.dtype.element_bytes());
        EXPECT_EQ(c.layout.span().low_byte, 0);
    }
}

TEST(ImageFormat, InternedAndReadBackWithTheHandlesPitch) {
    const auto* format = image_pack4_format(1, 1);
    const kern::Image2DPack4Format* other_thread = nullptr;
    std::thread([&] { other_thread = image_pack4_format(1, 1); }).join();
    EXPECT_EQ(other_thread, format);
    EXPECT_NE(image_pack4_format(1, 2), format);
    EXPECT_EQ(image_pack4_format(3, 1)->with_axis(1), format);

    const auto handle = make_handle(NAIVE);
    const std::string bytes = format->serialize();
    EXPECT_EQ(bytes, std::string("\1\0\0\0\1", 5));
    EXPECT_EQ(kern::deserialize_format(bytes, handle.get()), format);
    kern::set_naive_image_pitch_alignment(64);
    EXPECT_EQ(kern::deserialize_format(bytes, handle.get()), image_pack4_format(1, 64));
    kern::set_naive_image_pitch_alignment(1);
    const std::string plain = kern::default_format()->serialize();
    EXPECT_EQ(kern::deserialize_format(plain, nullptr), kern::default_format());
}

}  // namespace
}  // namespace kern_test
