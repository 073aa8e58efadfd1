#include "kernels/operators/mask_conv.h"

#include "kernels/check.h"

namespace kern {
namespace {

ConvolutionParam convolution_of(const MaskPropagateParam& param) {
    ConvolutionParam result;
    result.pad_h = param.pad_h;
    result.pad_w = param.pad_w;
    result.stride_h = param.stride_h;
    result.stride_w = param.stride_w;
    result.dilate_h = param.dilate_h;
    result.dilate_w = param.dilate_w;
    return result;
}

TensorShape one_channel(const TensorShape& mask) {
    KERN_CHECK(mask.ndim == 2);
    return {1, 1, mask[0], mask[1]};
}

}  // namespace

void MaskConvForward::check_mask(const TensorLayout& mask, const TensorLayout& dst) const {
    KERN_CHECK(dst.ndim == 4 && mask.same_shape({dst[2], dst[3]}));
    KERN_CHECK(mask.dtype.valid() && mask.is_dense());
}

TensorShape MaskPropagate::deduce_shape(const Param& param, const TensorShape& src) {
    const TensorShape dst = convolved_shape(convolution_of(param), one_channel(src),
                                            {1, 1, param.kernel_h, param.kernel_w});
    return {dst[2], dst[3]};
}

ConvolutionSizeRecord MaskPropagate::check_exec(const TensorLayout& src,
                                                const TensorLayout& dst) const {
    KERN_CHECK(src.dtype.valid() && src.dtype == dst.dtype);
    KERN_CHECK(src.is_dense() && dst.is_dense());
    const DType any = DType::Float32();
    return convolution_size(convolution_of(m_param), {one_channel(src), any},
                            {{1, 1, m_param.kernel_h, m_param.kernel_w}, any},
                            {one_channel(dst), any});
}

}  // namespace kern
