// Running sums along an axis.
#pragma once

#include "graph/opr/kernel_operator.h"
#include "kernels/operators/cumsum.h"

namespace orb {

template <>
inline constexpr auto FIELDS<kern::Cumsum::Param> = std::tuple{
    &kern::Cumsum::Param::axis, &kern::Cumsum::Param::exclusive, &kern::Cumsum::Param::reverse};

class Cumsum final : public KernelOperator<Cumsum, kern::Cumsum> {
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
    Cumsum(const std::vector<GraphVar*>& inputs, const Param& param, const OperatorConfig& config);
};

}  // namespace orb
