// The product of signed bytes into 32-bit integers, over packed panels: A in panels of 4 rows, B in
// panels of 2 columns, transposed or not. Stateless; a call works in its own workspace.
//
// Depth is walked in steps of 16 bytes, and the products of positions k and k + 8 of a step are
// added in 16 bits. Only two products of (-128) x (-128) pass what 16 bits hold; their sum wraps to
// -32768, so that C is 65536 less than the exact product. Everything else is exact, up to the wrap
// of 32 bits.
#pragma once

#include "kernels/operators/matrix_mul_args.h"

namespace kern::armv7 {

// Bytes of workspace for a product of these sizes; a size that does not fit stops the process.
size_t int8_product_workspace(size_t rows, size_t columns, size_t depth);

// `workspace` needs no alignment.
void int8_product(const MatrixMulArgs& args, void* workspace);

// Packs lines in panels of WIDTH: a panel has for each 16 bytes of depth those of its first line,
// then those of its second, and so on. The last 16 bytes are filled up with zeros. The places of
// lines that the last panel lacks are not written. Made for a WIDTH of 4 and of 2.
template <size_t WIDTH>
void pack_int8_panels(const Lines<int8_t>& lines, size_t depth, int8_t* panels);

}  // namespace kern::armv7
