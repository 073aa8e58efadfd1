// Elementwise with wide vectors for the subtraction of a row or a column from a matrix, which every
// score of a search passes through twice. Everything else runs at the fallback level.
#pragma once

#include "kernels/fallback/elementwise.h"
#include "kernels/x86/kernel_table.h"

namespace kern::x86 {

class ElementwiseImpl final : public fallback::ElementwiseImpl {
public:
    // Uses the instruction set that is chosen now.
    explicit ElementwiseImpl(KernelHandle* handle)
        : fallback::ElementwiseImpl(handle), m_kernels(kernel_table(instruction_set())) {}

protected:
    BinaryRowKernel binary_row_kernel(DTypeEnum dtype) const override;

private:
    const KernelTable& m_kernels;
};

}  // namespace kern::x86
