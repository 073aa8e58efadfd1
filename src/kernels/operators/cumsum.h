// Running sums along one axis.
#pragma once

#include "kernels/handle.h"

namespace kern {

struct CumsumParam {
    int32_t axis = -1;      // a negative one counts from behind the last
    bool exclusive = true;  // an element's own value is not in its sum
    bool reverse = false;   // sums run from the element to the end
};

class Cumsum : public ParamOperator<CumsumParam> {
public:
    using ParamOperator::ParamOperator;

    // Dense tensors of one layout, Float32, Float16 or integers that wrap around. Every sum is
    // rounded to the dtype before the next element is added. `dst` may be the memory of `src`.
    virtual void exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) = 0;
    virtual size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& dst) = 0;

protected:
    void check_exec(const TensorLayout& src, const TensorLayout& dst, size_t workspace_size);
    // The parameter's axis, counted from the first; stops the process on one that is not there.
    size_t axis_of(const TensorLayout& src) const;
};

}  // namespace kern
