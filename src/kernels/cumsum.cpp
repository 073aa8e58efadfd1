#include "kernels/cumsum.h"

#include "kernels/check.h"

namespace kern {

int32_t Cumsum::axis_of(const TensorLayout& src) const {
    return m_param.axis < 0 ? m_param.axis + static_cast<int32_t>(src.ndim) : m_param.axis;
}

void Cumsum::check_exec(const TensorLayout& src, const TensorLayout& dst, size_t workspace_size) {
    KERN_CHECK(src.dtype.valid() && src.same_layout(dst));
    KERN_CHECK(src.is_contiguous() && dst.is_contiguous());
    KERN_CHECK(workspace_in_bytes(src, dst) <= workspace_size);
}

}  // namespace kern
