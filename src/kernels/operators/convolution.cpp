#include "kernels/operators/convolution.h"

#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace kern {
namespace {

size_t convolved_length(size_t length, size_t pad, size_t filter, size_t dilate, size_t stride) {
    KERN_CHECK(filter >= 1 && dilate >= 1 && stride >= 1);
    const size_t padded = checked_add(length, checked_mul(size_t{2}, pad));
    const size_t reach = checked_add(checked_mul(dilate, filter - 1), size_t{1});
    KERN_CHECK(padded >= reach);
    return (padded - reach) / stride + 1;
}

// Axes of a filter behind that of the groups, where there is one.
size_t nr_group_axes(const ConvolutionParam& param) {
    KERN_CHECK(param.sparse <= ConvolutionSparse::GROUP);
    return param.sparse == ConvolutionSparse::GROUP ? 1 : 0;
}

const uint8_t* advance(const void* pointer, DType dtype, size_t elements) {
    return static_cast<const uint8_t*>(pointer) + elements * dtype.element_bytes();
}

void check_dtypes(const ConvolutionParam& param, DType src, DType filter, DType dst) {
    KERN_CHECK(src.valid() && filter.valid() && dst.valid());
    KERN_CHECK(src.enum_value() == filter.enum_value());
    KERN_CHECK(dst.enum_value() == MatrixMul::deduce_dtype(param.data_type, src.enum_value()));
}

}  // namespace

ConvolutionRunRecord ConvolutionRunRecord::group_at(size_t index) const {
    ConvolutionRunRecord one = *this;
    one.group = 1;
    one.src = advance(src, src_type, index * icpg * src_plane());
    one.filter = advance(filter, filter_type, index * ocpg * depth());
    one.dst = static_cast<uint8_t*>(dst) + index * ocpg * dst_plane() * dst_type.element_bytes();
    return one;
}

TensorShape convolved_shape(const ConvolutionParam& param, const TensorShape& src,
                            const TensorShape& filter) {
    KERN_CHECK(param.format == ConvolutionFormat::NCHW);
    KERN_CHECK(param.mode <= ConvolutionMode::CONVOLUTION);
    const size_t axis = nr_group_axes(param);
    KERN_CHECK(src.ndim == 4 && filter.ndim == 4 + axis);
    const size_t groups = axis == 1 ? filter[0] : 1;
    KERN_CHECK(src[1] == checked_mul(groups, filter[axis + 1]));
    return {
        src[0], checked_mul(groups, filter[axis]),
        convolved_length(src[2], param.pad_h, filter[axis + 2], param.dilate_h, param.stride_h),
        convolved_length(src[3], param.pad_w, filter[axis + 3], param.dilate_w, param.stride_w)};
}

ConvolutionSizeRecord convolution_size(const ConvolutionParam& param, const TensorLayout& src,
                                       const TensorLayout& filter, const TensorLayout& dst) {
    KERN_CHECK(dst.same_shape(convolved_shape(param, src, filter)));
    KERN_CHECK(src.is_dense() && filter.is_dense() && dst.is_dense());
    check_dtypes(param, src.dtype, filter.dtype, dst.dtype);
    const size_t axis = nr_group_axes(param);
    ConvolutionSizeRecord size;
    size.n = src[0];
    size.ih = src[2];
    size.iw = src[3];
    size.oh = dst[2];
    size.ow = dst[3];
    size.format = param.format;
    size.mode = param.mode;
    size.group = axis == 1 ? filter[0] : 1;
    size.icpg = filter[axis + 1];
    size.ocpg = filter[axis];
    size.spatial_ndim = 2;
    size.stride_h = param.stride_h;
    size.stride_w = param.stride_w;
    size.pad_h = param.pad_h;
    size.pad_w = param.pad_w;
    size.fh = filter[axis + 2];
    size.fw = filter[axis + 3];
    size.dilate_h = param.dilate_h;
    size.dilate_w = param.dilate_w;
    size.src_type = src.dtype;
    size.filter_type = filter.dtype;
    size.dst_type = dst.dtype;
    size.src_image_step = src[1] * size.src_plane();
    size.dst_image_step = dst[1] * size.dst_plane();
    return size;
}

}  // namespace kern
