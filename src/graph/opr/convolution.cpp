#include "graph/opr/convolution.h"

#include "graph/opr/matrix_multiply.h"
#include "kernels/check.h"

namespace orb {
namespace {

using kern::ConvolutionOperand;
using kern::TensorShape;

struct Names {
    const char* by_form[2];  // of operators without a name of their own
    const char* type;
};
template <typename Kernel>
constexpr Names NAMES{};
template <>
constexpr Names NAMES<kern::ConvolutionForward>{{"conv_fwdv2", "conv_fwdv2"}, "ConvolutionForward"};
template <>
constexpr Names NAMES<kern::ConvolutionBackwardData>{{"conv_bwd_data", "conv_bwd_datav2"},
                                                     "ConvolutionBackwardData"};
template <>
constexpr Names NAMES<kern::ConvolutionBackwardFilter>{{"conv_bwd_filter", "conv_bwd_filterv2"},
                                                       "ConvolutionBackwardFilter"};
template <>
constexpr Names NAMES<kern::Convolution3DForward>{{"conv3d", "conv3d_fwdv2"},
                                                  "Convolution3DForward"};
template <>
constexpr Names NAMES<kern::Convolution3DBackwardData>{{"conv3d_bwd_data", "conv3d_bwd_datav2"},
                                                       "Convolution3DBackwardData"};
template <>
constexpr Names NAMES<kern::Convolution3DBackwardFilter>{
    {"conv3d_bwd_filter", "conv3d_bwd_filterv2"}, "Convolution3DBackwardFilter"};

// Images, filter and outputs, of which the kernel reads the first two that are given.
template <typename Kernel, typename T>
std::array<T, 3> in_order(const T& first, const T& second, const T& written) {
    switch (Kernel::WRITTEN) {
        case ConvolutionOperand::SRC:
            return {written, first, second};
        case ConvolutionOperand::FILTER:
            return {first, written, second};
        case ConvolutionOperand::DST:
            return {first, second, written};
    }
    KERN_FAIL();
}

const OperatorCopy COPIES[] = {
    {&ConvolutionForward::TYPE, &ConvolutionForward::copy},
    {&ConvolutionBackwardData::TYPE, &ConvolutionBackwardData::copy},
    {&ConvolutionBackwardFilter::TYPE, &ConvolutionBackwardFilter::copy},
    {&Convolution3DForward::TYPE, &Convolution3DForward::copy},
    {&Convolution3DBackwardData::TYPE, &Convolution3DBackwardData::copy},
    {&Convolution3DBackwardFilter::TYPE, &Convolution3DBackwardFilter::copy},
};

}  // namespace

bool are_convolution_rules(const kern::ConvolutionRules& rules) {
    for (const auto& axis : rules.axes) {
        if (axis.stride == 0 || axis.dilate == 0)
            return false;
    }
    return rules.mode <= kern::ConvolutionMode::CONVOLUTION &&
           rules.sparse <= kern::ConvolutionSparse::GROUP &&
           rules.format == kern::ConvolutionFormat::NCHW &&
           rules.data_type <= kern::MatrixMulDataType::ASYMM8_TO_S32;
}

template <typename Kernel>
const OperatorType ConvolutionOf<Kernel>::TYPE{NAMES<Kernel>.type};

template <typename Kernel>
bool ConvolutionOf<Kernel>::takes(const Param&, size_t nr_inputs) {
    switch (Kernel::WRITTEN) {
        case ConvolutionOperand::SRC:
            return nr_inputs == 2 || nr_inputs == 3;
        case ConvolutionOperand::FILTER:
            return nr_inputs == 3;
        case ConvolutionOperand::DST:
            return nr_inputs == 2;
    }
    return false;
}

template <typename Kernel>
ConvolutionOf<Kernel>::ConvolutionOf(const std::vector<GraphVar*>& inputs, const Param& param,
                                     const OperatorConfig& config)
    : KernelOperator<ConvolutionOf, Kernel, Param>(
          inputs[0]->owner_graph(), inputs, param, config,
          NAMES<Kernel>.by_form[param.form == NameForm::V2]) {
    this->add_equality_key(static_cast<uint64_t>(param.form));
    this->add_outputs({product_dtype(inputs[0], inputs[1], param.data_type, config)});
    this->add_workspace();
}

template <typename Kernel>
GraphVar* ConvolutionOf<Kernel>::make(const std::vector<GraphVar*>& inputs, const Param& param,
                                      const OperatorConfig& config) {
    return ConvolutionOf::create(inputs, param, config);
}

// Of the third input only the shape is read.
template <typename Kernel>
void ConvolutionOf<Kernel>::constrain_input_layouts(OperatorProperties& properties) const {
    this->require_contiguous_layout(properties, 0);
    this->require_contiguous_layout(properties, 1);
}

template <typename Kernel>
TensorShape ConvolutionOf<Kernel>::output_shape(size_t, const std::vector<InferInput>& inputs) {
    const TensorShape &first = *inputs[0].shape, &second = *inputs[1].shape;
    if constexpr (Kernel::WRITTEN != ConvolutionOperand::FILTER) {
        if (inputs.size() == 2)
            return Kernel::deduce_shape(this->param(), first, second);
    }
    const TensorShape& written = *inputs[2].shape;
    const auto [src, filter, dst] = in_order<Kernel>(first, second, written);
    KERN_CHECK(dst.same_shape(kern::convolved_shape(this->param(), src, filter)));
    return written;
}

template <typename Kernel>
size_t ConvolutionOf<Kernel>::query_workspace(const Layouts& inputs, const Layouts& outputs) {
    const auto [src, filter, dst] = in_order<Kernel>(inputs[0], inputs[1], outputs[0]);
    return this->query_kernel().workspace_in_bytes(src, filter, dst);
}

template <typename Kernel>
void ConvolutionOf<Kernel>::forward(const Tensors& inputs, const Tensors& outputs,
                                    const kern::Workspace& workspace) {
    const auto [src, filter, dst] = in_order<Kernel>(inputs[0], inputs[1], outputs[0]);
    this->kernel().exec(src, filter, dst, workspace);
}

template class ConvolutionOf<kern::ConvolutionForward>;
template class ConvolutionOf<kern::ConvolutionBackwardData>;
template class ConvolutionOf<kern::ConvolutionBackwardFilter>;
template class ConvolutionOf<kern::Convolution3DForward>;
template class ConvolutionOf<kern::Convolution3DBackwardData>;
template class ConvolutionOf<kern::Convolution3DBackwardFilter>;

}  // namespace orb
