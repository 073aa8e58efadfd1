// Batched matrix product: one task of the inner operator per batch, all in one workspace.
#pragma once

#include <memory>

#include "kernels/operators/batched_matrix_mul.h"

namespace kern::naive {

class BatchedMatrixMulImpl : public BatchedMatrixMul {
public:
    explicit BatchedMatrixMulImpl(KernelHandle* handle) : BatchedMatrixMulImpl(handle, handle) {}
    void exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
              const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                              const TensorLayout& c) override;

protected:
    // The operands without their batch axis, and the way from one batch to the next.
    class Batches {
    public:
        Batches(const RawTensor& a, const RawTensor& b, const RawTensor& c);
        // One product after the other.
        void run(MatrixMul& inner, const Workspace& workspace) const;

    private:
        struct Operand {
            RawTensor first;
            ptrdiff_t step;  // in bytes
            explicit Operand(const RawTensor& batches);
            RawTensor at(size_t batch) const;
        };
        Operand m_a, m_b, m_c;
        size_t m_count;
    };

    // `inner_handle` makes the inner operators.
    BatchedMatrixMulImpl(KernelHandle* handle, KernelHandle* inner_handle);

    void check_exec(const TensorLayout& a, const TensorLayout& b, const TensorLayout& c,
                    size_t workspace_size);
    // The inner operator with the parameters of this moment; for the calling thread only.
    MatrixMul& inner();

private:
    std::unique_ptr<MatrixMul> m_inner;
};

}  // namespace kern::naive
