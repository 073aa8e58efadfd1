// The inputs of an elementwise kernel, each broadcast to the output's shape and then collapsed by
// itself. Since views collapse separately, a row vector and a dense tensor of one shape can end
// with different numbers of axes: the dense one has a single axis, the row vector has two with
// strides (0, 1), a column vector two with strides (1, 0).
#pragma once

#include <array>
#include <vector>

#include "kernels/types/layout.h"

namespace kern {

struct BroadcastView {
    const void* raw_ptr = nullptr;
    TensorLayout layout;
};

// A value: tasks carry copies. Borrows the inputs' memory.
struct BroadcastSet {
    static constexpr size_t MAX_ARITY = 4;

    // An input that cannot be broadcast is a reshape failure.
    BroadcastSet(const std::vector<RawTensor>& inputs, const TensorShape& output);

    int max_ndim = -1;
    size_t element_count = 0;
    std::array<BroadcastView, MAX_ARITY> views;
};

}  // namespace kern
