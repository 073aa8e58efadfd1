// Reduce by plain loops over runs of at most 4096 elements, halving above that; several lines along
// the axis run side by side. Needs no workspace for the dtypes that it has loops for.
#pragma once

#include "kernels/naive/reduce.h"

namespace kern::fallback {

class ReduceImpl : public naive::ReduceImpl {
public:
    using naive::ReduceImpl::ReduceImpl;
    void exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& dst) override;
};

}  // namespace kern::fallback
