// A tensor seen around one of its axes, for the operators that work along an axis.
#pragma once

#include <cstdint>

#include "kernels/types/layout.h"

namespace kern {

// A dense tensor seen around one axis: element (a, b, c) stands at (a * length + b) * inner + c.
struct AxisSplit {
    size_t outer;   // the axes before
    size_t length;  // the axis
    size_t inner;   // the axes after

    // Stops the process on an axis that the layout does not have, and on products that do not fit.
    static AxisSplit of(const TensorLayout& layout, size_t axis);
};

// The shape with length 1 on the axis; stops the process on an axis that it does not have.
TensorShape collapse_axis(const TensorShape& shape, int32_t axis);

}  // namespace kern
