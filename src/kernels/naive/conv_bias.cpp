#include "kernels/naive/conv_bias.h"

#include <algorithm>

#include "kernels/check.h"
#include "kernels/types/arithmetic.h"

namespace kern::naive {
namespace {

template <typename T>
void hard_swish(const RawTensor& dst) {
    T* value = dst.ptr<T>();
    for (size_t i = dst.layout.element_count(); i > 0; --i, ++value) {
        const float x = widen(*value);
        *value = narrow<T>(x * std::min(std::max(x + 3, 0.0f), 6.0f) / 6);
    }
}

}  // namespace

ConvBiasForwardImpl::ConvBiasForwardImpl(KernelHandle* handle)
    : ConvBiasForward(handle),
      m_convolution(handle->create_operator<ConvolutionForward>()),
      m_elementwise(handle->create_operator<Elementwise>()) {}

ConvolutionForward& ConvBiasForwardImpl::convolution() {
    m_convolution->param() = m_param;
    return *m_convolution;
}

size_t ConvBiasForwardImpl::workspace_in_bytes(const TensorLayout& src, const TensorLayout& filter,
                                               const TensorLayout&, const TensorLayout& dst) {
    return convolution().workspace_in_bytes(src, filter, dst);
}

void ConvBiasForwardImpl::exec(const RawTensor& src, const RawTensor& filter, const RawTensor& bias,
                               const RawTensor& dst, const Workspace& workspace) {
    check_bias(bias.layout, dst.layout);
    convolution().exec(src, filter, dst, workspace);
    switch (m_param.nonlinearity) {
        case Nonlinearity::NONE:
            return apply(ElementwiseMode::ADD, {dst, bias}, dst);
        case Nonlinearity::RELU:
            return apply(ElementwiseMode::ADD_RELU, {dst, bias}, dst);
        case Nonlinearity::SIGMOID:
            return apply(ElementwiseMode::ADD_SIGMOID, {dst, bias}, dst);
        case Nonlinearity::TANH:
            return apply(ElementwiseMode::ADD_TANH, {dst, bias}, dst);
        case Nonlinearity::FAST_TANH:
            apply(ElementwiseMode::ADD, {dst, bias}, dst);
            return apply(ElementwiseMode::RATIONAL_TANH, {dst}, dst);
        case Nonlinearity::HARD_SWISH:
            apply(ElementwiseMode::ADD, {dst, bias}, dst);
            return apply_hard_swish(dst);
    }
}

void ConvBiasForwardImpl::apply(ElementwiseMode mode, const std::vector<RawTensor>& inputs,
                                const RawTensor& dst) {
    m_elementwise->param().mode = mode;
    m_elementwise->exec(inputs, dst);
}

// There is no elementwise mode for it.
void ConvBiasForwardImpl::apply_hard_swish(const RawTensor& dst) {
    const auto kernel =
        dst.layout.dtype == DType::Float16() ? &hard_swish<Float16> : &hard_swish<float>;
    dispatch([kernel, dst] { kernel(dst); });
}

}  // namespace kern::naive
