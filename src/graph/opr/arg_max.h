// Where the largest element along an axis stands, as Int32; the axis has length 1 then.
#pragma once

#include "graph/opr/kernel_operator.h"
#include "kernels/operators/arg_max.h"

namespace orb {

template <>
inline constexpr auto FIELDS<kern::ArgSelect::Param> = std::tuple{&kern::ArgSelect::Param::axis};

class ArgMax final : public KernelOperator<ArgMax, kern::ArgMax> {
public:
    static const OperatorType TYPE;

    static GraphVar* make(GraphVar* source, const Param& param, const OperatorConfig& config = {});

protected:
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    size_t query_workspace(const Layouts& inputs, const Layouts& outputs) override;
    void forward(const Tensors& inputs, const Tensors& outputs,
                 const kern::Workspace& workspace) override;

private:
    friend Base;
    ArgMax(const std::vector<GraphVar*>& inputs, const Param& param, const OperatorConfig& config);
};

}  // namespace orb
