// Matrix product by a triple loop; no workspace.
#pragma once

#include "kernels/operators/matrix_mul.h"

namespace kern::naive {

class MatrixMulImpl : public MatrixMul {
public:
    using MatrixMul::MatrixMul;
    void exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
              const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                              const TensorLayout& c) override;
};

}  // namespace kern::naive
