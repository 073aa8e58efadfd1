#include "kernels/fallback/matrix_mul.h"

#include "kernels/fallback/packed_product.h"
#include "kernels/fallback/row_accumulation.h"
#include "kernels/operators/matrix_mul_args.h"

namespace kern::fallback {

size_t MatrixMulImpl::workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                                         const TensorLayout& c) {
    switch (path(a, c)) {
        case Path::ROWS:
            return 0;
        case Path::FLOAT:
            return float_workspace_in_bytes(a, c);
        default:
            return naive::MatrixMulImpl::workspace_in_bytes(a, b, c);
    }
}

void MatrixMulImpl::exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                         const Workspace& workspace) {
    check_exec(a.layout, b.layout, c.layout, workspace.size);
    switch (path(a.layout, c.layout)) {
        case Path::ROWS:
            return exec_rows(a, b, c);
        case Path::FLOAT:
            return exec_float(a, b, c, workspace);
        case Path::NAIVE:
            return naive::MatrixMulImpl::exec(a, b, c, workspace);
    }
}

MatrixMulImpl::Path MatrixMulImpl::path(const TensorLayout& a, const TensorLayout& c) const {
    if (can_accumulate_rows(a, c))
        return Path::ROWS;
    return can_run_float(a) ? Path::FLOAT : Path::NAIVE;
}

void MatrixMulImpl::exec_rows(const RawTensor& a, const RawTensor& b, const RawTensor& c) {
    const auto kernel = m_param.data_type == MatrixMulDataType::INT8_TO_INT16
                            ? &accumulate_rows_int16
                            : &accumulate_rows_int32;
    dispatch([kernel, args = MatrixMulArgs(m_param, a, b, c)] { kernel(args); });
}

void MatrixMulImpl::exec_float(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                               const Workspace& workspace) {
    dispatch([args = MatrixMulArgs(m_param, a, b, c), panels = workspace.raw_ptr] {
        packed_product(args, panels);
    });
}

bool MatrixMulImpl::can_run_float(const TensorLayout& a) const {
    return m_param.data_type == MatrixMulDataType::DEFAULT && a.dtype == DType::Float32();
}

size_t MatrixMulImpl::float_workspace_in_bytes(const TensorLayout& a, const TensorLayout& c) const {
    return packed_product_workspace(c[0], c[1], a[m_param.transpose_a ? 0 : 1]);
}

// Float data never takes this path: its short products go through the same panels as long ones. Nor
// does what has zero points.
bool MatrixMulImpl::can_accumulate_rows(const TensorLayout& a, const TensorLayout& c) const {
    return !m_param.transpose_a && !m_param.transpose_b && c[0] <= 2 &&
           a.dtype.category() != DTypeCategory::FLOAT &&
           a.dtype.enum_value() != DTypeEnum::QUANTIZED8_ASYMM;
}

}  // namespace kern::fallback
