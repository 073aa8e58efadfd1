#include "kernels/operators/broadcast.h"

#include <algorithm>

#include "kernels/check.h"

namespace kern {

BroadcastSet::BroadcastSet(const std::vector<RawTensor>& inputs, const TensorShape& output) {
    KERN_CHECK(inputs.size() <= MAX_ARITY);
    element_count = output.element_count();
    for (size_t i = 0; i < inputs.size(); ++i) {
        views[i] = {inputs[i].raw_ptr, inputs[i].layout.broadcast_to(output).collapsed()};
        max_ndim = std::max(max_ndim, static_cast<int>(views[i].layout.ndim));
    }
}

}  // namespace kern
