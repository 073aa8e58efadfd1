// Copies elements between tensors of one dtype whose layouts differ.
#pragma once

#include "kernels/handle.h"

namespace kern {

class Relayout : public KernelOperator {
public:
    using KernelOperator::KernelOperator;
    bool is_thread_safe() const override { return true; }

    // The tensors have equal dtypes and element counts, and `dst` does not overlap itself or `src`;
    // elements are matched in row-major order. `src_handle` is the device that `src` lives on, null
    // for the operator's own; only devices of one address space are supported.
    virtual void exec(const RawTensor& src, const RawTensor& dst,
                      KernelHandle* src_handle = nullptr) = 0;

protected:
    void check_exec(const TensorLayout& src, const TensorLayout& dst) const;
};

}  // namespace kern
