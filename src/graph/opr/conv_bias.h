// A convolution, a bias for each of its channels and a nonlinearity.
#pragma once

#include "graph/opr/convolution.h"
#include "kernels/operators/conv_bias.h"

namespace orb {

template <>
inline constexpr auto FIELDS<kern::ConvBiasParam> =
    std::tuple_cat(FIELDS<kern::ConvolutionParam>, std::tuple{&kern::ConvBiasParam::nonlinearity});

class ConvBias final
    : public KernelOperator<ConvBias, kern::ConvBiasForward, NamedParam<kern::ConvBiasParam>> {
public:
    static const OperatorType TYPE;
    static bool accepts(const Param& param);
    static size_t nr_inputs(const Param&) { return 3; }

    // The bias is {1, channels, 1, 1} of the result's dtype.
    static GraphVar* make(GraphVar* images, GraphVar* filter, GraphVar* bias, const Param& param,
                          const OperatorConfig& config = {});

protected:
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    size_t query_workspace(const Layouts& inputs, const Layouts& outputs) override;
    void forward(const Tensors& inputs, const Tensors& outputs,
                 const kern::Workspace& workspace) override;

private:
    friend Base;
    ConvBias(const std::vector<GraphVar*>& inputs, const Param& param,
             const OperatorConfig& config);
};

}  // namespace orb
