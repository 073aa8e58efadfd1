#include "kernels/types/layout.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "kernels/check.h"
#include "kernels/checked_math.h"
#include "kernels/types/format.h"

namespace kern {
namespace {

size_t magnitude(ptrdiff_t stride) {
    return stride < 0 ? size_t{0} - static_cast<size_t>(stride) : static_cast<size_t>(stride);
}

// Walks from the last axis; an axis of length 1 may hold any stride.
bool dense_walk(const TensorLayout& layout, bool skip_broadcast) {
    size_t expected = 1;
    for (size_t axis = layout.ndim; axis-- > 0;) {
        if (skip_broadcast && layout.stride[axis] == 0)
            continue;
        if (layout.shape[axis] != 1 && layout.stride[axis] != checked_stride(expected))
            return false;
        expected = checked_mul(expected, layout.shape[axis]);
    }
    return expected != 0;
}

}  // namespace

TensorLayout::TensorLayout() : format(default_format()) {}

TensorLayout::TensorLayout(DType dtype_) : dtype(dtype_), format(default_format()) {}

TensorLayout::TensorLayout(DType dtype_, const TensorFormat* format_)
    : dtype(dtype_), format(format_) {}

TensorLayout::TensorLayout(const TensorShape& shape_, DType dtype_)
    : TensorLayout(shape_, dtype_, default_format()) {}

TensorLayout::TensorLayout(const TensorShape& shape_, DType dtype_, const TensorFormat* format_)
    : TensorShape(shape_), dtype(dtype_), format(format_) {
    fill_strides();
}

size_t TensorLayout::fill_strides() {
    return format->fill_strides(*this);
}

size_t TensorLayout::fill_strides(const TensorShape& new_shape) {
    TensorShape::operator=(new_shape);
    return fill_strides();
}

bool TensorLayout::is_dense() const {
    return format->is_dense(*this);
}

bool TensorLayout::is_dense_raw() const {
    return dense_walk(*this, false);
}

bool TensorLayout::is_dense_allow_broadcast() const {
    return ndim != 0 && dense_walk(*this, true);
}

bool TensorLayout::is_abs_monotonic_allow_broadcast() const {
    if (ndim == 0)
        return false;
    if (ndim == 1)
        return true;
    size_t last = checked_mul(shape[ndim - 1], magnitude(stride[ndim - 1]));
    for (size_t axis = ndim - 1; axis-- > 0;) {
        if (stride[axis] == 0 || shape[axis] == 1)
            continue;
        if (magnitude(stride[axis]) < last)
            return false;
        last = checked_mul(magnitude(stride[axis]), shape[axis]);
    }
    return true;
}

bool TensorLayout::is_non_overlapping() const {
    using Axis = std::tuple<size_t, ptrdiff_t, size_t>;  // magnitude, stride, length
    Axis axes[MAX_NDIM];
    for (size_t axis = 0; axis < ndim; ++axis) {
        const Axis next(magnitude(stride[axis]), stride[axis], shape[axis]);
        Axis* place = std::upper_bound(axes, axes + axis, next);
        std::move_backward(place, axes + axis, axes + axis + 1);
        *place = next;
    }

    ptrdiff_t positive = 0;
    ptrdiff_t negative = 0;
    for (size_t i = 0; i < ndim; ++i) {
        const ptrdiff_t step = std::get<1>(axes[i]);
        const size_t length = std::get<2>(axes[i]);
        if (length == 1)
            continue;
        KERN_CHECK(length != 0);
        ptrdiff_t& reached = step < 1 ? negative : positive;
        if (step < 1 ? negative <= step : positive >= step)
            return false;
        reached = checked_add(reached, checked_mul(step, checked_stride(length - 1)));
    }
    return true;
}

TensorLayout TensorLayout::collapsed() const {
    return format->collapsed(*this);
}

Span TensorLayout::span() const {
    return format->span(*this);
}

bool TensorLayout::same_layout(const TensorLayout& other) const {
    KERN_CHECK(dtype == other.dtype);
    if (!same_shape(other))
        return false;
    for (size_t axis = 0; axis < ndim; ++axis) {
        if (shape[axis] != 1 && stride[axis] != other.stride[axis])
            return false;
    }
    return true;
}

TensorLayout TensorLayout::broadcast_to(const TensorShape& target) const {
    KERN_CHECK_RESHAPE(ndim != 0 && target.ndim != 0);
    TensorLayout result(dtype, format);
    result.ndim = target.ndim;
    if (ndim == 1 && shape[0] == 1) {
        for (size_t axis = 0; axis < target.ndim; ++axis) {
            result.shape[axis] = target[axis];
            result.stride[axis] = target[axis] == 1 ? 1 : 0;
        }
        return result;
    }
    KERN_CHECK_RESHAPE(ndim <= target.ndim);
    for (size_t from_right = 0; from_right < target.ndim; ++from_right) {
        const size_t axis = target.ndim - 1 - from_right;
        KERN_CHECK_RESHAPE(target[axis] != 0);
        result.shape[axis] = target[axis];
        if (from_right >= ndim) {
            result.stride[axis] = 0;
            continue;
        }
        const size_t source = ndim - 1 - from_right;
        if (shape[source] == target[axis]) {
            result.stride[axis] = stride[source];
        } else {
            // An axis of stride 0 is a broadcast already and takes any length.
            KERN_CHECK_RESHAPE(shape[source] == 1 || stride[source] == 0);
            result.stride[axis] = 0;
        }
    }
    return result;
}

bool TensorLayout::try_reshape(TensorLayout& result, const TensorShape& target) const {
    KERN_CHECK(target.ndim != 0);
    KERN_CHECK_RESHAPE(!target.has_zero_axis());
    KERN_CHECK_RESHAPE(target.element_count() == element_count());
    const TensorLayout source = collapsed();

    result = TensorLayout(dtype, format);
    static_cast<TensorShape&>(result) = target;

    // Each group of target axes fills exactly one collapsed axis.
    size_t source_axis = 0;
    size_t group_start = 0;
    const auto finish_group = [&](size_t group_end) {
        ptrdiff_t step = source.stride[source_axis];
        for (size_t axis = group_end; axis-- > group_start;) {
            result.stride[axis] = step;
            if (axis > group_start)
                step = checked_mul(step, checked_stride(target[axis]));
        }
        group_start = group_end;
        ++source_axis;
    };

    size_t product = target[0];
    if (product > source[0])
        return false;
    for (size_t i = 1; i < target.ndim; ++i) {
        // A length-1 axis stays in the open group, whatever its place.
        if (product == source[source_axis] && target[i] != 1) {
            finish_group(i);
            product = 1;
        }
        KERN_CHECK(source_axis < source.ndim);
        product = checked_mul(product, target[i]);
        if (product > source[source_axis])
            return false;
    }
    if (product != source[source_axis])
        return false;
    finish_group(target.ndim);
    KERN_CHECK(source_axis == source.ndim);
    return true;
}

TensorLayout TensorLayout::reshape(const TensorShape& target) const {
    TensorLayout result;
    KERN_CHECK_RESHAPE(try_reshape(result, target));
    return result;
}

TensorLayout TensorLayout::permuted(const std::vector<size_t>& order) const {
    KERN_CHECK(order.size() == ndim);
    TensorLayout result(dtype, format);
    result.ndim = ndim;
    for (size_t axis = 0; axis < ndim; ++axis) {
        KERN_CHECK(order[axis] < ndim);
        result.shape[axis] = shape[order[axis]];
        result.stride[axis] = stride[order[axis]];
    }
    return result;
}

TensorLayout TensorLayout::remove_axis(size_t axis) const {
    TensorLayout result = *this;
    result.remove_axis_inplace(axis);
    return result;
}

void TensorLayout::remove_axis_inplace(size_t axis) {
    KERN_CHECK(ndim >= 2 && axis < ndim);
    std::copy(shape + axis + 1, shape + ndim, shape + axis);
    std::copy(stride + axis + 1, stride + ndim, stride + axis);
    --ndim;
}

void TensorLayout::insert_axis_inplace(size_t axis, size_t length, ptrdiff_t axis_stride) {
    KERN_CHECK(ndim + 1 <= MAX_NDIM && length != 0 && axis <= ndim);
    std::copy_backward(shape + axis, shape + ndim, shape + ndim + 1);
    std::copy_backward(stride + axis, stride + ndim, stride + ndim + 1);
    shape[axis] = length;
    stride[axis] = axis_stride;
    ++ndim;
}

std::string TensorLayout::to_string() const {
    std::string text = "{";
    for (size_t axis = 0; axis < ndim; ++axis) {
        if (axis > 0)
            text += ",";
        text += std::to_string(shape[axis]) + "(" + std::to_string(stride[axis]) + ")";
    }
    if (!format->is_default())
        text += " @ " + format->to_string();
    return text + "}";
}

}  // namespace kern
