// The Float32 product of a short A, or of a B that is one contiguous column: straight from the
// operands, without panels. Pure functions on the caller's memory; any thread.
#pragma once

#include "kernels/armv7/float_product.h"

namespace kern::armv7 {

// For what `takes_small_routine` says; of the same bits as the blocked routine.
void small_float_product(const FloatProduct& product);

}  // namespace kern::armv7
