// The operands of a matrix product with the transpositions worked into the steps, in elements.
// A value: tasks carry copies. Borrows the operands' memory.
#pragma once

#include "kernels/operators/matrix_mul.h"
#include "kernels/packing/lines.h"

namespace kern {

struct MatrixMulArgs {
    const void* a;
    const void* b;
    void* c;
    size_t rows;     // M
    size_t columns;  // N
    size_t depth;    // K
    ptrdiff_t a_row, a_k;
    ptrdiff_t b_k, b_column;
    ptrdiff_t c_row;

    MatrixMulArgs(const MatrixMul::Param& param, const RawTensor& a_tensor,
                  const RawTensor& b_tensor, const RawTensor& c_tensor)
        : a(a_tensor.raw_ptr),
          b(b_tensor.raw_ptr),
          c(c_tensor.raw_ptr),
          rows(c_tensor.layout[0]),
          columns(c_tensor.layout[1]),
          depth(a_tensor.layout[param.transpose_a ? 0 : 1]),
          a_row(param.transpose_a ? 1 : a_tensor.layout.stride[0]),
          a_k(param.transpose_a ? a_tensor.layout.stride[0] : 1),
          b_k(param.transpose_b ? 1 : b_tensor.layout.stride[0]),
          b_column(param.transpose_b ? b_tensor.layout.stride[0] : 1),
          c_row(c_tensor.layout.stride[0]) {}

    // Dense matrices, none of them transposed.
    MatrixMulArgs(const float* a_first, const float* b_first, float* c_first, size_t nr_rows,
                  size_t nr_columns, size_t products)
        : a(a_first),
          b(b_first),
          c(c_first),
          rows(nr_rows),
          columns(nr_columns),
          depth(products),
          a_row(static_cast<ptrdiff_t>(products)),
          a_k(1),
          b_k(static_cast<ptrdiff_t>(nr_columns)),
          b_column(1),
          c_row(static_cast<ptrdiff_t>(nr_columns)) {}
};

}  // namespace kern
