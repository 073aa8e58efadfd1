// Elementwise with tight loops for the common broadcasts: one axis, a row or column vector against
// a matrix, one value per channel. Other broadcasts run at the naive level.
#pragma once

#include "kernels/naive/elementwise.h"

namespace kern::fallback {

class ElementwiseImpl : public naive::ElementwiseImpl {
public:
    using naive::ElementwiseImpl::ElementwiseImpl;
    void exec(const std::vector<RawTensor>& inputs, const RawTensor& output) override;

protected:
    // One row of output from two inputs; a stride of 0 reads one element for the whole row. The
    // output may be the memory of an input with stride 1.
    using BinaryRowKernel = void (*)(const void* x, ptrdiff_t x_stride, const void* y,
                                     ptrdiff_t y_stride, void* out, size_t count);
    // The kernel of the mode for a dtype, which a level above may replace.
    virtual BinaryRowKernel binary_row_kernel(DTypeEnum dtype) const;
};

}  // namespace kern::fallback
