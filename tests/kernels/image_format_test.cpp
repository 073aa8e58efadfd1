#include "kernels/types/image_format.h"

#include <thread>

#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::image_pack4_format;

// Its first two axes step rows.
TensorLayout image(const TensorShape& shape, const std::vector<ptrdiff_t>& strides,
                   size_t align_bytes = 64, DType dtype = DType::Float32()) {
    TensorLayout layout = strided(shape, strides, dtype);
    layout.format = image_pack4_format(2, align_bytes);
    return layout;
}

TEST(ImageFormat, StridesPutRowsOnTheAlignment) {
    const auto text = [](const TensorShape& shape, size_t align_axis, size_t align_bytes, DType t) {
        return TensorLayout(shape, t, image_pack4_format(align_axis, align_bytes)).to_string();
    };
    const DType f32 = DType::Float32();
    EXPECT_EQ(text({5, 3, 4}, 1, 64, f32), "{5(16),3(4),4(1) @ I2D{1,64}}");
    EXPECT_EQ(text({5, 3, 4}, 1, 2, f32), "{5(12),3(4),4(1) @ I2D{1,2}}");
    EXPECT_EQ(text({2, 5, 3, 4}, 2, 64, DType::Float16()), "{2(160),5(32),3(4),4(1) @ I2D{2,64}}");
    EXPECT_EQ(text({5, 3, 4}, 2, 16, DType::Int8()), "{5(48),3(16),4(1) @ I2D{2,16}}");
    TensorLayout filled({5, 3, 4}, f32, image_pack4_format(1, 64)), none(f32, filled.format);
    EXPECT_EQ(filled.fill_strides(), 80u);
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
        EXPECT_EQ(image({2, 3, 3, 4}, c.strides).is_dense(), c.dense) << c.strides[0];
    EXPECT_FALSE(image({2, 3, 5, 4}, {48, 16, 4, 1}).is_dense());  // rows overlap
    EXPECT_FALSE(image({2, 0, 3, 4}, {0, 16, 4, 1}).is_dense());
}

// What is inside a row is never merged with the rows, and a span holds whole rows.
TEST(ImageFormat, CollapsedAxesAndSpan) {
    const DType f32 = DType::Float32(), i8 = DType::Int8();
    const auto* format = image_pack4_format(2, 64);
    const struct {
        TensorLayout layout;
        bool dense;
        const char* collapsed;
        size_t elements;
    } cases[] = {
        {{{5, 4, 4}, f32, image_pack4_format(1, 64)}, true, "{5(16),16(1) @ I2D{1,64}}", 80},
        {{{5, 3, 4}, f32, image_pack4_format(1, 2)}, true, "{5(12),12(1) @ I2D{1,2}}", 60},
        {{{5, 3, 4}, i8, image_pack4_format(2, 16)}, true, "{15(16),4(1) @ I2D{1,16}}", 240},
        {{{2, 5, 3, 4}, f32, format}, true, "{10(16),12(1) @ I2D{1,64}}", 160},
        {{{2, 5, 3, 4}, DType::Float16(), format}, true, "{10(32),12(1) @ I2D{1,64}}", 320},
        {image({2, 5, 3, 4}, {160, 16, 4, 1}), false, "{2(160),5(16),12(1) @ I2D{2,64}}", 160},
        {image({2, 5, 3, 4}, {80, 16, 8, 1}), false, "{10(16),3(8),4(1) @ I2D{1,64}}", 160},
        {image({1, 5, 1, 4}, {7, 16, 9, 1}), true, "{5(16),4(1) @ I2D{1,64}}", 80},
        {image({1, 1, 1, 4}, {16, 16, 4, 1}), true, "{1(16),4(1) @ I2D{1,64}}", 16},
        {image({3, 1, 1, 2, 4}, {32, 16, 8, 4, 1}), false, "{3(32),1(16),8(1) @ I2D{2,64}}", 48},
        // A broadcast axis adds no rows; the pitch is then further out, and only the nearest axis
        // is aligned. A lone row is rounded up.
        {image({2, 5, 3, 4}, {0, 32, 4, 1}), false, "{2(0),5(32),12(1) @ I2D{2,64}}", 160},
        {image({2, 5, 3, 4}, {16, 0, 4, 1}), false, "{2(16),5(0),12(1) @ I2D{2,64}}", 32},
        {image({2, 5, 3, 4}, {12, 0, 4, 1}), false, "{2(12),5(0),12(1) @ I2D{2,64}}", 24},
        {image({2, 5, 17, 4}, {0, 0, 4, 1}), false, "{10(0),68(1) @ I2D{1,64}}", 80},
        {image({2, 5, 3, 4}, {0, 0, 0, 1}, 4, i8), false, "{10(0),3(0),4(1) @ I2D{1,4}}", 4},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.layout.to_string());
        EXPECT_EQ(c.layout.is_dense(), c.dense);
        EXPECT_EQ(c.layout.collapsed().to_string(), c.collapsed);
        EXPECT_EQ(c.layout.span().high_elem, c.elements);
        EXPECT_EQ(c.layout.span().high_byte, c.layout.dtype.byte_size(c.elements));
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
