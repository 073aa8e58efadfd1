// Elementwise formulas whose inputs and output differ in dtype, with the broadcasts of Elementwise.
#pragma once

#include <cstdint>
#include <vector>

#include "kernels/handle.h"
#include "kernels/operators/broadcast.h"

namespace kern {

// Shift counts are whole numbers of 8, 16 or 32 bits. Results that do not fit the output take
// the nearest value that does, except of MUL_ADD_TO_INT32, which wraps.
//
//   MUL_ADD_TO_INT32     x * y + z         x Int16, y and z Int32; gives Int32
//   MUL_ADD_TO_INT8      rint(x * y + z)   x Int16 or Int32, y and z Float32; gives Int8
//   SHIFT_TO_INT8        x >> y, rounded   x Int8, Int16 or Int32; gives Int8
//   SHIFT_TO_INT16       the same, giving Int16
//   ADD_MUL_SHIFT_INT16  the sum of x and y, which wraps, times z as ROUNDING_HIGH_MUL has it,
//                        shifted right by w, rounded; x, y and z Int16; gives Int8
//   ADD_MUL_SHIFT_INT32  the same of Int32; gives Int8
//   QUANTISED_ADD        x + y of QuantizedS8 values, in 32-bit float; gives any quantised type
//   QUANTISED_ADD_RELU   the same, and zero in place of negative sums
//
// A rounded shift goes to the nearest number, ties away from zero; a count of 32 or more leaves
// the sign (0 or -1), and so does a negative one.
enum class MultiTypeMode : uint32_t {
#define KERN_MULTI_TYPE_MODE(number, NAME, method, arity) NAME = number,
#include "kernels/operators/elementwise_multi_type_modes.inc"
#undef KERN_MULTI_TYPE_MODE
};

struct ElementwiseMultiTypeParam {
    MultiTypeMode mode{};
};

class ElementwiseMultiType : public ParamOperator<ElementwiseMultiTypeParam> {
public:
    using ParamOperator::ParamOperator;
    using Mode = MultiTypeMode;

    // The output is dense and not empty, and every input can be broadcast to its shape. The output
    // may be the memory of an input of the same layout and element size.
    void exec(const std::vector<RawTensor>& inputs, const RawTensor& output);

protected:
    // A mode's kernel: what a level replaces. The dtype of the output is checked already where the
    // mode has only one.
#define KERN_MULTI_TYPE_MODE(number, NAME, method, arity) \
    virtual void method(const BroadcastSet& inputs, const RawTensor& output) = 0;
#include "kernels/operators/elementwise_multi_type_modes.inc"
#undef KERN_MULTI_TYPE_MODE
};

}  // namespace kern
