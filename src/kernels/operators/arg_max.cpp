#include "kernels/operators/arg_max.h"

#include "kernels/check.h"

namespace kern {

void ArgSelect::check_exec(const TensorLayout& src, const TensorLayout& dst,
                           size_t workspace_size) {
    KERN_CHECK(src.is_dense() && dst.is_dense());
    KERN_CHECK(dst.same_shape(collapse_axis(src, m_param.axis)));
    KERN_CHECK(src.dtype.valid() && dst.dtype == DType::Int32());
    KERN_CHECK(src[static_cast<size_t>(m_param.axis)] <= INT32_MAX);
    KERN_CHECK(workspace_in_bytes(src, dst) <= workspace_size);
}

}  // namespace kern
