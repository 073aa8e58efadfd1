// Convolutions in all directions, along two and three spatial axes.
#pragma once

#include <array>
#include <vector>

#include "graph/opr/kernel_operator.h"
#include "graph/opr/named_param.h"
#include "kernels/operators/convolution_backward.h"
#include "kernels/operators/convolution_forward.h"

namespace orb {

template <>
inline constexpr auto FIELDS<kern::ConvolutionParam> =
    std::tuple{&kern::ConvolutionParam::mode,     &kern::ConvolutionParam::pad_h,
               &kern::ConvolutionParam::pad_w,    &kern::ConvolutionParam::stride_h,
               &kern::ConvolutionParam::stride_w, &kern::ConvolutionParam::dilate_h,
               &kern::ConvolutionParam::dilate_w, &kern::ConvolutionParam::sparse,
               &kern::ConvolutionParam::format,   &kern::ConvolutionParam::data_type};
template <>
inline constexpr auto FIELDS<kern::Convolution3DParam> =
    std::tuple{&kern::Convolution3DParam::mode,     &kern::Convolution3DParam::pad_d,
               &kern::Convolution3DParam::pad_h,    &kern::Convolution3DParam::pad_w,
               &kern::Convolution3DParam::stride_d, &kern::Convolution3DParam::stride_h,
               &kern::Convolution3DParam::stride_w, &kern::Convolution3DParam::dilate_d,
               &kern::Convolution3DParam::dilate_h, &kern::Convolution3DParam::dilate_w,
               &kern::Convolution3DParam::sparse,   &kern::Convolution3DParam::format,
               &kern::Convolution3DParam::data_type};

// Whether all numbers are ones that have a meaning.
bool are_convolution_rules(const kern::ConvolutionRules& rules);

// One direction: that of the kernel.
template <typename Kernel>
class ConvolutionOf final
    : public KernelOperator<ConvolutionOf<Kernel>, Kernel, NamedParam<typename Kernel::Param>> {
public:
    using Param = NamedParam<typename Kernel::Param>;
    static const OperatorType TYPE;
    static bool accepts(const Param& param) { return are_convolution_rules(param); }
    static bool takes(const Param& param, size_t nr_inputs);

    // The two operands that are read, of images, filter and what the filter makes of them: in this
    // order. For backward filter then a var of the filter's shape, and for backward data maybe one
    // of the images' shape: without it they are the smallest that fit. The dtype as in
    // MatrixMultiply.
    static GraphVar* make(const std::vector<GraphVar*>& inputs, const Param& param,
                          const OperatorConfig& config = {});

protected:
    using typename ForwardingOperator::Layouts;
    using typename ForwardingOperator::Tensors;
    void constrain_input_layouts(OperatorProperties& properties) const override;
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    size_t query_workspace(const Layouts& inputs, const Layouts& outputs) override;
    void forward(const Tensors& inputs, const Tensors& outputs,
                 const kern::Workspace& workspace) override;

private:
    friend ParamOperator<ConvolutionOf, Param, ForwardingOperator>;
    ConvolutionOf(const std::vector<GraphVar*>& inputs, const Param& param,
                  const OperatorConfig& config);
};

extern template class ConvolutionOf<kern::ConvolutionForward>;
extern template class ConvolutionOf<kern::ConvolutionBackwardData>;
extern template class ConvolutionOf<kern::ConvolutionBackwardFilter>;
extern template class ConvolutionOf<kern::Convolution3DForward>;
extern template class ConvolutionOf<kern::Convolution3DBackwardData>;
extern template class ConvolutionOf<kern::Convolution3DBackwardFilter>;

using ConvolutionForward = ConvolutionOf<kern::ConvolutionForward>;
using ConvolutionBackwardData = ConvolutionOf<kern::ConvolutionBackwardData>;
using ConvolutionBackwardFilter = ConvolutionOf<kern::ConvolutionBackwardFilter>;
using Convolution3DForward = ConvolutionOf<kern::Convolution3DForward>;
using Convolution3DBackwardData = ConvolutionOf<kern::Convolution3DBackwardData>;
using Convolution3DBackwardFilter = ConvolutionOf<kern::Convolution3DBackwardFilter>;

}  // namespace orb
