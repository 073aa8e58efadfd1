#include "kernels/armv7/matrix_mul.h"

#include "kernels/armv7/float_product.h"
#include "kernels/armv7/int8_product.h"
#include "kernels/armv7/int8_to_int16_product.h"

namespace kern::armv7 {

void MatrixMulImpl::exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                         const Workspace& workspace) {
    check_exec(a.layout, b.layout, c.layout, workspace.size);
    switch (integer_path(a.layout, c.layout)) {
        case IntegerPath::INT8_TO_INT16:
            dispatch([args = MatrixMulArgs(m_param, a, b, c), areas = workspace.raw_ptr] {
                int8_to_int16_product(args, areas);
            });
            return;
        case IntegerPath::INT8:
            return exec_int8(a, b, c, workspace);
        case IntegerPath::FALLBACK:
            return fallback::MatrixMulImpl::exec(a, b, c, workspace);
    }
}

size_t MatrixMulImpl::workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                                         const TensorLayout& c) {
    switch (integer_path(a, c)) {
        case IntegerPath::INT8_TO_INT16:
            return int8_to_int16_product_workspace(c[0], c[1], a[1]);
        case IntegerPath::INT8:
            return int8_workspace_in_bytes(a, c);
        default:
            return fallback::MatrixMulImpl::workspace_in_bytes(a, b, c);
    }
}

MatrixMulImpl::IntegerPath MatrixMulImpl::integer_path(const TensorLayout& a,
                                                       const TensorLayout& c) const {
    if (path(a, c) == Path::ROWS)
        return IntegerPath::FALLBACK;
    if (m_param.data_type == MatrixMulDataType::INT8_TO_INT16 && !m_param.transpose_a &&
        !m_param.transpose_b)
        return IntegerPath::INT8_TO_INT16;
    return can_run_int8() ? IntegerPath::INT8 : IntegerPath::FALLBACK;
}

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

void MatrixMulImpl::exec_int8(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                              const Workspace& workspace) {
    dispatch([args = MatrixMulArgs(m_param, a, b, c), panels = workspace.raw_ptr] {
        int8_product(args, panels);
    });
}

size_t MatrixMulImpl::int8_workspace_in_bytes(const TensorLayout& a, const TensorLayout& c) const {
    return int8_product_workspace(c[0], c[1], a[m_param.transpose_a ? 0 : 1]);
}

bool MatrixMulImpl::can_run_int8() const {
    return m_param.data_type == MatrixMulDataType::INT8_TO_INT32;
}

}  // namespace kern::armv7
