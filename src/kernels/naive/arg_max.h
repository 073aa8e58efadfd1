// ArgMax and ArgMin, one line along the axis after another. Need no workspace.
#pragma once

#include "kernels/operators/arg_max.h"

namespace kern::naive {

class ArgMaxImpl final : public ArgMax {
public:
    using ArgMax::ArgMax;
    void exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout&, const TensorLayout&) override { return 0; }
};

class ArgMinImpl final : public ArgMin {
public:
    using ArgMin::ArgMin;
    void exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout&, const TensorLayout&) override { return 0; }
};

}  // namespace kern::naive
