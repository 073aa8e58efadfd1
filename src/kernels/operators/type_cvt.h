// Converts elements from one dtype to another; shapes are equal.
#pragma once

#include "kernels/handle.h"

namespace kern {

class TypeCvt : public KernelOperator {
public:
    using KernelOperator::KernelOperator;

    // `dst` is dense. Float to integer truncates toward zero; a narrowing integer wraps
    // around. To a quantised type the nearest element is taken, halves away from zero and
    // saturated. Where a quantised type stands on either side, the value in between is a 32-bit
    // float.
    virtual void exec(const RawTensor& src, const RawTensor& dst) = 0;

protected:
    void check_exec(const TensorLayout& src, const TensorLayout& dst) const;
};

}  // namespace kern
