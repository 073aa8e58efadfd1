#include "kernels/operators/axis_split.h"

#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace kern {

AxisSplit AxisSplit::of(const TensorLayout& layout, size_t axis) {
    KERN_CHECK(axis < layout.ndim);
    AxisSplit split{1, layout[axis], 1};
    for (size_t i = 0; i < axis; ++i)
        split.outer = checked_mul(split.outer, layout[i]);
    for (size_t i = axis + 1; i < layout.ndim; ++i)
        split.inner = checked_mul(split.inner, layout[i]);
    return split;
}

TensorShape collapse_axis(const TensorShape& shape, int32_t axis) {
    KERN_CHECK(axis >= 0 && static_cast<size_t>(axis) < shape.ndim);
    TensorShape result = shape;
    result[static_cast<size_t>(axis)] = 1;
    return result;
}

}  // namespace kern
