// Matrix product for 32-bit Arm: Float32 by the blocked routine of float_product.h. What has no
// routine here runs at the fallback level.
#pragma once

#include "kernels/fallback/matrix_mul.h"

namespace kern::armv7 {

class MatrixMulImpl : public fallback::MatrixMulImpl {
public:
    using fallback::MatrixMulImpl::MatrixMulImpl;

protected:
    void exec_float(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                    const Workspace& workspace) override;
    size_t float_workspace_in_bytes(const TensorLayout& a, const TensorLayout& c) const override;
};

}  // namespace kern::armv7
