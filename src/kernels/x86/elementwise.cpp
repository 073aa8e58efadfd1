#include "kernels/x86/elementwise.h"

namespace kern::x86 {

ElementwiseImpl::BinaryRowKernel ElementwiseImpl::binary_row_kernel(DTypeEnum dtype) const {
    if (m_param.mode == ElementwiseMode::SUB && dtype == DTypeEnum::FLOAT32)
        return m_kernels.subtract_float;
    if (m_param.mode == ElementwiseMode::SUB && dtype == DTypeEnum::INT32)
        return m_kernels.subtract_int32;
    return fallback::ElementwiseImpl::binary_row_kernel(dtype);
}

}  // namespace kern::x86
