// Reduce by recursive halving down to single elements. Where the working dtype is not a tensor's,
// the workspace holds a converted copy of that tensor.
#pragma once

#include "kernels/operators/reduce.h"

namespace kern::naive {

class ReduceImpl : public Reduce {
public:
    using Reduce::Reduce;
    void exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& dst) override;
};

}  // namespace kern::naive
