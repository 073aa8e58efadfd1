#include "kernels/armv7/matrix_mul.h"

namespace kern::armv7 {

void MatrixMulImpl::exec_float(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                               const Workspace& workspace) {
    fallback::MatrixMulImpl::exec_float(a, b, c, workspace);
}

size_t MatrixMulImpl::float_workspace_in_bytes(const TensorLayout& a, const TensorLayout& c) const {
    return fallback::MatrixMulImpl::float_workspace_in_bytes(a, c);
}

}  // namespace kern::armv7
