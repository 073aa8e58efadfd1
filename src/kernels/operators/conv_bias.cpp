#include "kernels/operators/conv_bias.h"

#include "kernels/check.h"

namespace kern {

void ConvBiasForward::check_bias(const TensorLayout& bias, const TensorLayout& dst) const {
    KERN_CHECK(dst.dtype.valid());
    const DTypeCategory category = dst.dtype.category();
    const Nonlinearity nonlinearity = m_param.nonlinearity;
    KERN_CHECK(nonlinearity <= Nonlinearity::HARD_SWISH);
    KERN_CHECK(category == DTypeCategory::FLOAT ||
               (category == DTypeCategory::INTEGER && nonlinearity <= Nonlinearity::RELU));
    KERN_CHECK(dst.ndim == 4 && bias.same_shape({1, dst[1], 1, 1}));
    KERN_CHECK(bias.dtype == dst.dtype && bias.is_dense());
}

}  // namespace kern
