// Integer products of very short and not transposed operands: each row of C is a sum of rows of B,
// scaled by a row of A, so that B is read in the order of its memory. Sums wrap around.
#pragma once

#include "kernels/operators/matrix_mul_args.h"

namespace kern::fallback {

// Int8 to Int16.
void accumulate_rows_int16(const MatrixMulArgs& args);
// Int8 to Int32, QuantizedS8 to QuantizedS32.
void accumulate_rows_int32(const MatrixMulArgs& args);

}  // namespace kern::fallback
