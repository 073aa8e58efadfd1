#include "kernels/operators/cumsum.h"

#include "kernels/check.h"

namespace kern {

size_t Cumsum::axis_of(const TensorLayout& src) const {
    const auto ndim = static_cast<int32_t>(src.ndim);
    const int32_t axis = m_param.axis < 0 ? m_param.axis + ndim : m_param.axis;
    KERN_CHECK(axis >= 0 && axis < ndim);
    return static_cast<size_t>(axis);
}

void Cumsum::check_exec(const TensorLayout& src, const TensorLayout& dst, size_t workspace_size) {
    KERN_CHECK(src.dtype.valid() && src.same_layout(dst));
    KERN_CHECK(src.is_dense() && dst.is_dense());
    KERN_CHECK(workspace_in_bytes(src, dst) <= workspace_size);
}

}  // namespace kern
