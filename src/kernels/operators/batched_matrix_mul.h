// C[n] = op(A[n]) x op(B[n]) for every n of a leading axis: a MatrixMul repeated. Not thread-safe:
// the inner operator is shared by calls.
#pragma once

#include "kernels/operators/matrix_mul.h"

namespace kern {

class BatchedMatrixMul : public ParamOperator<MatrixMulParam> {
public:
    using ParamOperator::ParamOperator;

    // Three axes each, the first of one length; the others and the dtypes are those of MatrixMul.
    // Anything else stops the process.
    virtual void exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                      const Workspace& workspace) = 0;
    virtual size_t workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                                      const TensorLayout& c) = 0;

    // What C is for operands of these shapes.
    static TensorShape deduce_shape(const Param& param, const TensorShape& a, const TensorShape& b);

protected:
    static void check_batches(const TensorLayout& a, const TensorLayout& b, const TensorLayout& c);
};

}  // namespace kern
