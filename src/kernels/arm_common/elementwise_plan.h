// Which vector form an elementwise call takes, and how the form walks its operands: plain values,
// decided before the kernel runs.
#pragma once

#include <cstddef>

#include "kernels/operators/broadcast.h"
#include "kernels/operators/elementwise.h"

namespace kern::arm_common {

// In a name the first word is `x`, the second `y`.
enum class VectorForm {
    NONE,  // left to the fallback level
    UNARY,
    DENSE_DENSE,
    DENSE_SCALAR,
    SCALAR_DENSE,
    DENSE_CHANNEL,  // one value (in the image format: four) for each run of elements
    CHANNEL_DENSE,
    DENSE_ROW,  // the same vector for each row
    ROW_DENSE,
    MUL_ADD,  // x and y each dense or scalar, z dense
};

// The dense operand is cut into outer * channels segments of `inner` elements. In each, the other
// operand has one value per channel (or one in all), or starts from its beginning.
struct VectorPlan {
    VectorForm form = VectorForm::NONE;
    size_t outer = 1;
    size_t channels = 1;
    size_t inner = 0;
    size_t period = 1;  // elements of a channel's value: 4 in the image format, otherwise 1
};

// Types that a mode may have a vector form for, as a set of bits.
enum VectorTypes : unsigned {
    FLOAT32 = 1,
    INT32 = 2,
    INT16 = 4,
    INT8 = 8,
    INTEGERS = INT32 | INT16 | INT8,
    NUMBERS = FLOAT32 | INTEGERS,
};

// The types of the mode's row in elementwise_vector_modes.inc; none without a row.
unsigned vector_types(ElementwiseMode mode);
// The bit of a dtype; 0 where no mode has vector forms.
unsigned vector_type(DTypeEnum dtype);

// One value for all elements.
bool is_scalar(const TensorLayout& view);

// `set` has the inputs of a call whose arguments are checked.
VectorPlan plan_vector_form(ElementwiseMode mode, DTypeEnum dtype, const BroadcastSet& set);

}  // namespace kern::arm_common
