// Converts elements from one dtype to another; shapes are equal.
#pragma once

#include "kernels/handle.h"

namespace kern {

class TypeCvt : public KernelOperator {
public:
    using KernelOperator::KernelOperator;

    // `dst` is dense. Float to integer truncates toward zero; a narrowing integer wraps around.
    virtual void exec(const RawTensor& src, const RawTensor& dst) = 0;

protected:
    void check_exec(const TensorLayout& src, const TensorLayout& dst) const;
};

}  // namespace kern
