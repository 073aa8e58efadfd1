#include "kernels/fallback/matrix_mul.h"

#include <algorithm>

#include "kernels/check.h"
#include "kernels/fallback/packed_product.h"
#include "kernels/matrix_mul_args.h"

namespace kern::fallback {
namespace {

// Each row of C is a sum of rows of B, scaled by a row of A: B is read in the order of its memory.
void accumulate_rows(const MatrixMulArgs& args) {
    const auto* a = static_cast<const int8_t*>(args.a);
    const auto* b = static_cast<const int8_t*>(args.b);
    for (size_t i = 0; i < args.rows; ++i) {
        const int8_t* a_row = at_step(a, i, args.a_row);
        // Unsigned, so that a sum beyond 32 bits wraps.
        auto* c_row = at_step(static_cast<uint32_t*>(args.c), i, args.c_row);
        std::fill(c_row, c_row + args.columns, 0u);
        for (size_t k = 0; k < args.depth; ++k) {
            const int8_t* b_row = at_step(b, k, args.b_k);
            for (size_t j = 0; j < args.columns; ++j)
                c_row[j] += static_cast<uint32_t>(a_row[k] * b_row[j]);
        }
    }
}

}  // namespace

size_t MatrixMulImpl::workspace_in_bytes(const TensorLayout& a, const TensorLayout& b,
                                         const TensorLayout& c) {
    if (can_accumulate_rows(a, c))
        return 0;
    if (can_run_float(a))
        return float_workspace_in_bytes(a, c);
    return naive::MatrixMulImpl::workspace_in_bytes(a, b, c);
}

void MatrixMulImpl::exec(const RawTensor& a, const RawTensor& b, const RawTensor& c,
                         const Workspace& workspace) {
    check_exec(a.layout, b.layout, c.layout, workspace.size);
    if (can_accumulate_rows(a.layout, c.layout)) {
        KERN_CHECK(m_param.data_type == MatrixMulDataType::INT8_TO_INT32 &&
                   a.layout.dtype == DType::Int8());
        dispatch([args = MatrixMulArgs(m_param, a, b, c)] { accumulate_rows(args); });
        return;
    }
    if (can_run_float(a.layout)) {
        exec_float(a, b, c, workspace);
        return;
    }
    naive::MatrixMulImpl::exec(a, b, c, workspace);
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

// Float data never takes this path: its short products go through the same panels as long ones.
bool MatrixMulImpl::can_accumulate_rows(const TensorLayout& a, const TensorLayout& c) const {
    return !m_param.transpose_a && !m_param.transpose_b && c[0] <= 2 &&
           a.dtype.category() != DTypeCategory::FLOAT;
}

}  // namespace kern::fallback
