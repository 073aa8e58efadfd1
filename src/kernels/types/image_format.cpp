#include "kernels/types/image_format.h"

#include <map>
#include <mutex>
#include <utility>

#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace kern {
namespace {

// The stride from one row to the next: the innermost one outside the row that is not a broadcast.
// 0 when all rows are the same one.
size_t pitch_elems(const TensorLayout& layout, size_t align_axis) {
    for (size_t axis = align_axis; axis-- > 0;) {
        if (layout.stride[axis] != 0)
            return static_cast<size_t>(layout.stride[axis]);
    }
    return 0;
}

size_t row_width(const TensorLayout& layout, size_t align_axis) {
    size_t width = 1;
    for (size_t axis = align_axis; axis < layout.ndim; ++axis)
        width = checked_add(
            width, checked_mul(static_cast<size_t>(layout.stride[axis]), layout.shape[axis] - 1));
    return width;
}

}  // namespace

size_t Image2DFormat::align_elems(DType dtype) const {
    const size_t size_log2 = dtype.size_log2();
    return m_align_size_log2 > size_log2 ? size_t{1} << (m_align_size_log2 - size_log2) : 1;
}

void Image2DFormat::assert_valid(const TensorLayout& layout) const {
    KERN_CHECK(layout.ndim > m_align_axis);
    for (size_t axis = 0; axis < layout.ndim; ++axis)
        KERN_CHECK(layout.shape[axis] != 0 && layout.stride[axis] >= 0);
    const auto nearest = static_cast<size_t>(layout.stride[m_align_axis - 1]);
    KERN_CHECK(nearest % align_elems(layout.dtype) == 0);
}

size_t Image2DFormat::fill_strides(TensorLayout& layout) const {
    if (layout.ndim == 0)
        return 0;
    KERN_CHECK(layout.ndim > m_align_axis);
    const size_t count = fill_dense_strides(layout, m_align_axis, align_elems(layout.dtype));
    assert_valid(layout);
    return count;
}

bool Image2DFormat::is_dense(const TensorLayout& layout) const {
    if (layout.ndim == 0)
        return true;
    const size_t unit = align_elems(layout.dtype);
    size_t expected = 1;
    for (size_t axis = layout.ndim; axis-- > 0;) {
        const bool steps_rows = axis + 1 == m_align_axis;
        if (steps_rows)
            expected = round_up(expected, unit);
        if (layout.shape[axis] != 1) {
            if (layout.stride[axis] < 0)
                return false;
            const auto stride = static_cast<size_t>(layout.stride[axis]);
            if (steps_rows && stride > expected && stride % unit == 0)
                expected = stride;
            if (stride != expected)
                return false;
        }
        expected = checked_mul(expected, layout.shape[axis]);
    }
    return expected != 0;
}

TensorLayout Image2DFormat::collapsed(const TensorLayout& layout) const {
    assert_valid(layout);
    TensorLayout result = layout;
    size_t align_axis = m_align_axis;
    for (size_t axis = result.ndim - 1; axis-- > 0;) {
        if (result.shape[axis] != 1 || axis + 1 == align_axis)
            continue;
        result.remove_axis_inplace(axis);
        if (axis < align_axis)
            --align_axis;
    }
    merge_axes(result, align_axis, result.ndim);
    align_axis -= merge_axes(result, 0, align_axis);
    result.format = with_axis(align_axis);
    return result;
}

Span Image2DFormat::span(const TensorLayout& layout) const {
    assert_valid(layout);
    size_t height = 1;
    for (size_t axis = 0; axis < m_align_axis; ++axis) {
        if (layout.stride[axis] != 0)
            height = checked_mul(height, layout.shape[axis]);
    }
    size_t pitch = layout.dtype.byte_size(pitch_elems(layout, m_align_axis));
    if (pitch == 0)
        pitch = round_up(layout.dtype.byte_size(row_width(layout, m_align_axis)),
                         size_t{1} << m_align_size_log2);
    Span result;
    result.high_byte = checked_mul(height, pitch);
    KERN_CHECK(result.high_byte % layout.dtype.element_bytes() == 0);
    result.high_elem = result.high_byte / layout.dtype.element_bytes();
    return result;
}

std::string Image2DFormat::to_string() const {
    return "I2D{" + std::to_string(m_align_axis) + "," +
           std::to_string(size_t{1} << m_align_size_log2) + "}";
}

void Image2DFormat::serialize_append(std::string& text) const {
    KERN_CHECK(m_align_axis <= UINT8_MAX);
    text.push_back(static_cast<char>(m_align_axis));
}

void Image2DPack4Format::assert_valid(const TensorLayout& layout) const {
    Image2DFormat::assert_valid(layout);
    KERN_CHECK(layout.shape[layout.ndim - 1] % 4 == 0);
}

const Image2DFormat* Image2DPack4Format::with_axis(size_t new_axis) const {
    return image_pack4_format(new_axis, size_t{1} << align_size_log2());
}

const Image2DPack4Format* image_pack4_format(size_t align_axis, size_t align_bytes) {
    KERN_CHECK(align_axis != 0);
    KERN_CHECK(is_power_of_two(align_bytes));
    using Table = std::map<std::pair<size_t, size_t>, const Image2DPack4Format*>;
    static auto& mutex = *new std::mutex;  // like the formats, usable in destructors at exit
    static auto& formats = *new Table;
    const std::lock_guard<std::mutex> lock(mutex);
    const Image2DPack4Format*& format = formats[{align_bytes, align_axis}];
    if (!format)
        format =
            new Image2DPack4Format(align_axis, static_cast<size_t>(__builtin_ctzll(align_bytes)));
    return format;
}

}  // namespace kern
