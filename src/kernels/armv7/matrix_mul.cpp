#include "kernels/armv7/matrix_mul.h"

#include "kernels/armv7/float_product.h"

namespace kern::armv7 {

void MatrixMulImpl::exec_float(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                               const Workspace& workspace) {
    FloatProduct product;
    product.transpose_a = m_param.transpose_a;
    product.transpose_b = m_param.transpose_b;
    product.rows = c.layout[0];
    product.columns = c.layout[1];
    product.depth = a.layout[m_param.transpose_a ? 0 : 1];
    product.a = a.ptr<float>();
    product.lda = a.layout.stride[0];
    product.b = b.ptr<float>();
    product.ldb = b.layout.stride[0];
    product.c = c.ptr<float>();
    product.ldc = c.layout.stride[0];
    dispatch([product, panels = workspace.raw_ptr] { float_product(product, panels); });
}

size_t MatrixMulImpl::float_workspace_in_bytes(const TensorLayout&, const TensorLayout&) const {
    return FLOAT_PRODUCT_WORKSPACE;
}

}  // namespace kern::armv7
