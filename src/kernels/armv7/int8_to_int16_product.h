// The product of signed bytes into 16-bit integers that wrap around, of operands that are not
// transposed. Stateless; a call works in its own workspace.
#pragma once

#include "kernels/operators/matrix_mul_args.h"

namespace kern::armv7 {

// Bytes of workspace for a product of these sizes; a size that does not fit stops the process.
size_t int8_to_int16_product_workspace(size_t rows, size_t columns, size_t depth);

// `workspace` needs no alignment.
void int8_to_int16_product(const MatrixMulArgs& args, void* workspace);

}  // namespace kern::armv7
