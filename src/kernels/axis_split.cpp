#include "kernels/axis_split.h"

#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace kern {
namespace {

size_t checked_axis(const TensorShape& shape, int32_t axis) {
    KERN_CHECK(axis >= 0 && static_cast<size_t>(axis) < shape.ndim);
    return static_cast<size_t>(axis);
}

}  // namespace

AxisSplit AxisSplit::of(const TensorLayout& layout, int32_t axis) {
    const size_t middle = checked_axis(layout, axis);
    AxisSplit split{1, layout[middle], 1};
    for (size_t i = 0; i < middle; ++i)
        split.outer = checked_mul(split.outer, layout[i]);
    for (size_t i = middle + 1; i < layout.ndim; ++i)
        split.inner = checked_mul(split.inner, layout[i]);
    return split;
}

TensorShape collapse_axis(const TensorShape& shape, int32_t axis) {
    TensorShape result = shape;
    result[checked_axis(shape, axis)] = 1;
    return result;
}

}  // namespace kern
