#include "kernels/operators/cond_take.h"

#include "kernels/check.h"

namespace kern {

void CondTake::check_exec(const TensorLayout& data, const TensorLayout& mask,
                          size_t workspace_size) {
    KERN_CHECK(m_param.mode <= CondTakeMode::GREATER_EQUAL);
    KERN_CHECK(m_param.eps > 0);  // not NaN either
    KERN_CHECK(data.dtype.valid() && mask.dtype.valid());
    KERN_CHECK(data.same_shape(mask) && data.is_dense() && mask.is_dense());
    KERN_CHECK(data.element_count() <= INT32_MAX);
    KERN_CHECK(workspace_in_bytes(data, mask) <= workspace_size);
}

}  // namespace kern
