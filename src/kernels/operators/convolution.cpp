#include "kernels/operators/convolution.h"

#include <algorithm>

#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace kern {
namespace {

// From the first element that an output sees to the last.
size_t reach(const ConvolutionRules::Axis& axis, size_t taps) {
    KERN_CHECK(taps >= 1 && axis.dilate >= 1 && axis.stride >= 1);
    return checked_add(checked_mul(axis.dilate, taps - 1), size_t{1});
}

size_t convolved_length(const ConvolutionRules::Axis& axis, size_t length, size_t taps) {
    const size_t padded = checked_add(length, checked_mul(size_t{2}, axis.pad));
    checked_stride(checked_add(padded, axis.stride));  // places along an axis are signed
    const size_t seen = reach(axis, taps);
    KERN_CHECK(padded >= seen);
    return (padded - seen) / axis.stride + 1;
}

size_t least_length(const ConvolutionRules::Axis& axis, size_t outputs, size_t taps) {
    KERN_CHECK(outputs >= 1);
    const size_t padded = checked_add(checked_mul(outputs - 1, axis.stride), reach(axis, taps));
    return padded - std::min(padded, checked_mul(size_t{2}, axis.pad));
}

// A filter's shape taken apart.
struct FilterShape {
    size_t group, ocpg, icpg;
    const size_t* taps;

    FilterShape(const ConvolutionRules& rules, const TensorShape& filter) {
        KERN_CHECK(rules.mode <= ConvolutionMode::CONVOLUTION);
        KERN_CHECK(rules.sparse <= ConvolutionSparse::GROUP);
        KERN_CHECK(rules.format == ConvolutionFormat::NCHW);
        const size_t axis = rules.sparse == ConvolutionSparse::GROUP ? 1 : 0;
        KERN_CHECK(filter.ndim == axis + 2 + rules.spatial_ndim);
        group = axis == 1 ? filter[0] : 1;
        ocpg = filter[axis];
        icpg = filter[axis + 1];
        taps = filter.shape + axis + 2;
    }
};

// The shape on the other side of a filter: `length(axis, length, taps)` along each spatial axis.
template <typename Length>
TensorShape other_side(const ConvolutionRules& rules, const TensorShape& images,
                       const FilterShape& filter, size_t channels_before, size_t channels_after,
                       Length length) {
    KERN_CHECK(images.ndim == 2 + rules.spatial_ndim);
    KERN_CHECK(images[1] == checked_mul(filter.group, channels_before));
    TensorShape shape = images;
    shape[1] = checked_mul(filter.group, channels_after);
    for (size_t i = 0; i < rules.spatial_ndim; ++i)
        shape[2 + i] =
            length(rules.axes[3 - rules.spatial_ndim + i], images[2 + i], filter.taps[i]);
    return shape;
}

void check_dtypes(MatrixMulDataType data_type, DType a, DType b, DType written) {
    KERN_CHECK(a.valid() && b.valid() && written.valid());
    KERN_CHECK(a.enum_value() == b.enum_value());
    KERN_CHECK(written.enum_value() == MatrixMul::deduce_dtype(data_type, a.enum_value()));
}

void check_dtypes(MatrixMulDataType data_type, const ConvolutionSizeRecord& size,
                  ConvolutionOperand written) {
    switch (written) {
        case ConvolutionOperand::SRC:
            return check_dtypes(data_type, size.filter_type, size.dst_type, size.src_type);
        case ConvolutionOperand::FILTER:
            return check_dtypes(data_type, size.src_type, size.dst_type, size.filter_type);
        case ConvolutionOperand::DST:
            return check_dtypes(data_type, size.src_type, size.filter_type, size.dst_type);
    }
}

void fill_axes(ConvolutionSizeRecord& size, const ConvolutionRules& rules, const TensorShape& src,
               const FilterShape& filter, const TensorShape& dst) {
    size_t in[3] = {1, 1, 1}, out[3] = {1, 1, 1}, taps[3] = {1, 1, 1};
    for (size_t i = 0, axis = 3 - rules.spatial_ndim; axis < 3; ++i, ++axis) {
        in[axis] = src[2 + i];
        out[axis] = dst[2 + i];
        taps[axis] = filter.taps[i];
    }
    const auto& [planes, rows, columns] = rules.axes;
    size.id = in[0];
    size.ih = in[1];
    size.iw = in[2];
    size.od = out[0];
    size.oh = out[1];
    size.ow = out[2];
    size.fd = taps[0];
    size.fh = taps[1];
    size.fw = taps[2];
    size.stride_d = planes.stride;
    size.stride_h = rows.stride;
    size.stride_w = columns.stride;
    size.pad_d = planes.pad;
    size.pad_h = rows.pad;
    size.pad_w = columns.pad;
    size.dilate_d = planes.dilate;
    size.dilate_h = rows.dilate;
    size.dilate_w = columns.dilate;
}

}  // namespace

ConvolutionRules::ConvolutionRules(const ConvolutionParam& param)
    : mode(param.mode),
      sparse(param.sparse),
      format(param.format),
      data_type(param.data_type),
      spatial_ndim(2),
      axes{{0, 1, 1},
           {param.pad_h, param.stride_h, param.dilate_h},
           {param.pad_w, param.stride_w, param.dilate_w}} {}

ConvolutionRules::ConvolutionRules(const Convolution3DParam& param)
    : mode(param.mode),
      sparse(param.sparse),
      format(param.format),
      data_type(param.data_type),
      spatial_ndim(3),
      axes{{param.pad_d, param.stride_d, param.dilate_d},
           {param.pad_h, param.stride_h, param.dilate_h},
           {param.pad_w, param.stride_w, param.dilate_w}} {}

// The steps are found once: a group may be a channel of a few outputs.
void ConvolutionRunRecord::for_each_group(void (*kernel)(const ConvolutionRunRecord&)) const {
    const size_t src_step = icpg * src_plane() * src_type.element_bytes();
    const size_t filter_step = ocpg * depth() * filter_type.element_bytes();
    const size_t dst_step = ocpg * dst_plane() * dst_type.element_bytes();
    ConvolutionRunRecord one = *this;
    one.group = 1;
    for (size_t i = 0; i < group; ++i) {
        kernel(one);
        one.src = static_cast<uint8_t*>(one.src) + src_step;
        one.filter = static_cast<uint8_t*>(one.filter) + filter_step;
        one.dst = static_cast<uint8_t*>(one.dst) + dst_step;
    }
}

TensorShape convolved_shape(const ConvolutionRules& rules, const TensorShape& src,
                            const TensorShape& filter) {
    const FilterShape parts(rules, filter);
    return other_side(rules, src, parts, parts.icpg, parts.ocpg, &convolved_length);
}

TensorShape least_src_shape(const ConvolutionRules& rules, const TensorShape& filter,
                            const TensorShape& dst) {
    const FilterShape parts(rules, filter);
    return other_side(rules, dst, parts, parts.ocpg, parts.icpg, &least_length);
}

ConvolutionSizeRecord convolution_size(const ConvolutionRules& rules, const TensorLayout& src,
                                       const TensorLayout& filter, const TensorLayout& dst,
                                       ConvolutionOperand written) {
    KERN_CHECK(dst.same_shape(convolved_shape(rules, src, filter)));
    KERN_CHECK(src.is_dense() && filter.is_dense() && dst.is_dense());
    const FilterShape parts(rules, filter);
    ConvolutionSizeRecord size;
    size.n = src[0];
    size.format = rules.format;
    size.mode = rules.mode;
    size.group = parts.group;
    size.icpg = parts.icpg;
    size.ocpg = parts.ocpg;
    size.spatial_ndim = rules.spatial_ndim;
    fill_axes(size, rules, src, parts, dst);
    size.src_type = src.dtype;
    size.filter_type = filter.dtype;
    size.dst_type = dst.dtype;
    check_dtypes(rules.data_type, size, written);
    size.src_image_step = src[1] * size.src_plane();
    size.dst_image_step = dst[1] * size.dst_plane();
    return size;
}

}  // namespace kern
