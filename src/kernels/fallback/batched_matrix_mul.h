// Batched matrix product: all batches in one task, each by the best matrix product of this machine.
#pragma once

#include "kernels/naive/batched_matrix_mul.h"

namespace kern::fallback {

class BatchedMatrixMulImpl final : public naive::BatchedMatrixMulImpl {
public:
    explicit BatchedMatrixMulImpl(KernelHandle* handle)
        : naive::BatchedMatrixMulImpl(handle, inplace_handle()) {}
    void exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
              const Workspace& workspace) override;
};

}  // namespace kern::fallback
