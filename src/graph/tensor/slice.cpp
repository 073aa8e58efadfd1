#include "graph/tensor/slice.h"

#include "kernels/check.h"
#include "kernels/types/format.h"

namespace orb {
namespace {

ptrdiff_t checked_product(ptrdiff_t a, ptrdiff_t b) {
    ptrdiff_t result = 0;
    KERN_CHECK(!__builtin_mul_overflow(a, b, &result));
    return result;
}

struct AxisRange {
    ptrdiff_t begin;
    ptrdiff_t step;
    size_t length;
};

AxisRange resolve(const TensorSlice& slice, size_t axis_length) {
    KERN_CHECK(axis_length <= static_cast<size_t>(PTRDIFF_MAX));
    const auto n = static_cast<ptrdiff_t>(axis_length);
    const auto from_start = [n](ptrdiff_t position) {
        return position < 0 ? position + n : position;
    };
    const ptrdiff_t step = slice.step.value_or(1);
    KERN_CHECK(step != 0);

    const bool forward = step > 0;
    const ptrdiff_t begin = slice.begin ? from_start(*slice.begin) : forward ? 0 : n - 1;
    const ptrdiff_t end = slice.end ? from_start(*slice.end) : forward ? n : -1;
    KERN_CHECK(begin >= 0);
    if (forward)
        KERN_CHECK(begin <= end && end <= n);
    else
        KERN_CHECK(end >= -1 && end <= begin && begin < n);

    const auto distance = static_cast<size_t>(forward ? end - begin : begin - end);
    const size_t stride =
        forward ? static_cast<size_t>(step) : size_t{0} - static_cast<size_t>(step);
    return {begin, step, distance == 0 ? 0 : (distance - 1) / stride + 1};
}

// Strides of length-1 axes say nothing, so they get those of a dense layout, which keeps dense
// parts recognisable. A new stride of an axis passes on to the length-1 axes before it.
void settle_strides(kern::TensorLayout& layout, size_t changed_axis) {
    size_t axis = changed_axis;
    if (layout.shape[axis] != 1) {
        if (axis == 0)
            return;
        --axis;
    }
    for (; layout.shape[axis] == 1; --axis) {
        layout.stride[axis] = axis + 1 == layout.ndim
                                  ? 1
                                  : checked_product(layout.stride[axis + 1],
                                                    static_cast<ptrdiff_t>(layout.shape[axis + 1]));
        if (axis == 0)
            break;
    }
}

}  // namespace

SubTensorRegion::SubTensorRegion(const kern::TensorLayout& layout, ptrdiff_t offset_elem)
    : m_layout(layout), m_offset_elem(offset_elem) {
    KERN_CHECK(layout.ndim != 0 && layout.dtype.valid());
}

ptrdiff_t SubTensorRegion::offset_byte() const {
    return checked_product(m_offset_elem, static_cast<ptrdiff_t>(m_layout.dtype.element_bytes()));
}

SubTensorRegion SubTensorRegion::operator+(const SubTensorRegion& inner) const {
    KERN_CHECK(m_layout.dtype == inner.m_layout.dtype);
    return SubTensorRegion(inner.m_layout, m_offset_elem + inner.m_offset_elem);
}

SubTensorRegion TensorSlice::apply(const kern::TensorLayout& layout, int axis) const {
    kern::TensorLayout part = layout;
    if (axis == -1) {
        part = layout.collapsed();
        KERN_CHECK(part.ndim == 1);
        axis = 0;
    }
    KERN_CHECK(axis >= 0 && static_cast<size_t>(axis) < part.ndim);
    const auto index = static_cast<size_t>(axis);
    const AxisRange range = resolve(*this, part.shape[index]);

    const ptrdiff_t old_stride = part.stride[index];
    // A step that leaves one element may be as large as it likes.
    const bool fits = !__builtin_mul_overflow(old_stride, range.step, &part.stride[index]);
    KERN_CHECK(fits || range.length <= 1);
    part.shape[index] = range.length;
    settle_strides(part, index);
    const bool strides_count_elements = layout.format->is_default();
    return SubTensorRegion(part,
                           strides_count_elements ? checked_product(old_stride, range.begin) : 0);
}

}  // namespace orb
