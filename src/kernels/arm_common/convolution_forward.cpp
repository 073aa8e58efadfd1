#include "kernels/arm_common/convolution_forward.h"

#include <algorithm>

#include "kernels/arm_common/direct_float.h"
#include "kernels/arm_common/direct_frame.h"
#include "kernels/arm_common/direct_int8.h"
#include "kernels/arm_common/winograd.h"
#include "kernels/checked_math.h"
#include "kernels/operators/convolution_patches.h"

namespace kern::arm_common {
namespace {

using Algorithm = ConvolutionAlgorithm;

bool has_stride(const ConvolutionSizeRecord& size, size_t stride) {
    return size.stride_h == stride && size.stride_w == stride;
}
bool is_turned(const ConvolutionSizeRecord& size) {
    return size.mode == ConvolutionMode::CONVOLUTION;
}
bool is_int8(const ConvolutionSizeRecord& size) {
    return fallback::is_plain(size) && !is_turned(size) && size.src_type == DType::Int8() &&
           size.dst_type == DType::Int16();
}

bool is_float_direct(const ConvolutionSizeRecord& size) {
    return fallback::is_plain_float32(size) && size.src_plane() >= 4 && size.dst_plane() >= 4 &&
           has_stride(size, 1) && size.fh < 8;
}
bool is_float_stride1(const ConvolutionSizeRecord& size) {
    return fallback::is_plain_float32(size) && !is_turned(size) && has_stride(size, 1) &&
           has_square_filter(size, {2, 3, 5});
}
bool is_float_stride2(const ConvolutionSizeRecord& size) {
    return fallback::is_plain_float32(size) && !is_turned(size) && has_stride(size, 2) &&
           has_square_filter(size, {2, 3, 5, 7});
}
bool is_winograd(const ConvolutionSizeRecord& size) {
    return fallback::is_plain_float32(size) && !is_turned(size) && has_stride(size, 1) &&
           has_square_filter(size, {3}) && size.pad_h == 0 && size.pad_w == 0 &&
           size.icpg % 8 == 0 && size.ocpg % 8 == 0;
}
bool is_int8_direct(const ConvolutionSizeRecord& size) {
    return is_int8(size) && has_stride(size, 1) && has_square_filter(size, {2, 3, 5});
}
bool is_int8_pointwise(const ConvolutionSizeRecord& size) {
    return is_int8(size) && is_pointwise(size);
}
bool is_int8_stride2(const ConvolutionSizeRecord& size) {
    return is_int8(size) && has_stride(size, 2) && has_square_filter(size, {2, 3, 5});
}
bool is_int8_stride2_in_pairs(const ConvolutionSizeRecord& size) {
    return is_int8_stride2(size) && size.fw == 2 && size.pad_h == 0 && size.pad_w == 0 &&
           size.ih % 2 == 0 && size.iw % 2 == 0;
}

// The size of an expanded matrix and of the padded image that it would be expanded from, beside the
// product's own: what callers may hold against a limit. The panels need only the latter.
size_t matrix_workspace(const ConvolutionSizeRecord& size) {
    if (is_pointwise(size))
        return size.products->matrix_workspace(size.ocpg, size.dst_plane(), size.icpg);
    const auto padded = [](size_t length, size_t pad) {
        return checked_add(length, checked_mul(size_t{2}, pad));
    };
    const auto bytes = [](size_t elements) {
        return checked_mul(checked_add(elements, size_t{4}), sizeof(float));
    };
    const size_t source = checked_mul(
        size.icpg, checked_mul(padded(size.ih, size.pad_h), padded(size.iw, size.pad_w)));
    const size_t matrix = checked_mul(size.depth(), size.dst_plane());
    return checked_add(checked_add(bytes(source), bytes(matrix)),
                       size.products->patches_workspace(size));
}

Algorithm::Kernel matrix_kernel(const ConvolutionSizeRecord& size) {
    if (is_pointwise(size))
        return &multiply_planes;
    return [](const ConvolutionRunRecord& run) {
        run.products->multiply_patches(run, run.workspace.raw_ptr);
    };
}

constexpr auto TAG = HandleLevel::ARM_COMMON;

const Algorithm ALGORITHMS[] = {
    {"F32DIRECT", TAG, &is_float_direct, &direct_workspace, &float_direct_kernel},
    {"WINOGRAD", TAG, &is_winograd, &winograd_workspace, &winograd_kernel},
    {"F32STRD2", TAG, &is_float_stride2, &direct_workspace, &float_stride2_kernel},
    {"F32STRD1", TAG, &is_float_stride1, &direct_workspace, &float_stride1_kernel},
    {"F32MATMUL", TAG, &fallback::is_plain_float32, &matrix_workspace, &matrix_kernel},
    {"I8816DIRECT", TAG, &is_int8_direct, &direct_workspace, &int8_direct_kernel},
    {"I8816C11", TAG, &is_int8_pointwise, &direct_workspace, &int8_pointwise_kernel},
    {"I8816STRD2", TAG, &is_int8_stride2, &direct_workspace, &int8_direct_kernel},
    {"I8816STRD2F2", TAG, &is_int8_stride2_in_pairs, &direct_workspace, &int8_direct_kernel},
};
constexpr const Algorithm *DIRECT = &ALGORITHMS[0], *WINOGRAD = &ALGORITHMS[1],
                          *STRIDE2 = &ALGORITHMS[2], *STRIDE1 = &ALGORITHMS[3],
                          *MATRIX = &ALGORITHMS[4], *INT8_DIRECT = &ALGORITHMS[5],
                          *INT8_POINTWISE = &ALGORITHMS[6], *INT8_STRIDE2 = &ALGORITHMS[7],
                          *INT8_PAIRS = &ALGORITHMS[8];

// A product pays from so many channels on.
constexpr size_t WIDE = 32;
const Algorithm* const WIDE_ORDER[] = {MATRIX, STRIDE1, DIRECT, STRIDE2, WINOGRAD};
const Algorithm* const NARROW_ORDER[] = {STRIDE1, DIRECT, STRIDE2, MATRIX, WINOGRAD};
const Algorithm* const INT8_ORDER[] = {INT8_POINTWISE, INT8_DIRECT, INT8_PAIRS, INT8_STRIDE2};

}  // namespace

bool has_square_filter(const ConvolutionSizeRecord& size, std::initializer_list<size_t> sides) {
    return size.fh == size.fw && std::find(sides.begin(), sides.end(), size.fh) != sides.end();
}

void multiply_planes(const ConvolutionRunRecord& run) {
    for (size_t image = 0; image < run.n; ++image)
        run.products->multiply_matrix(
            {static_cast<const float*>(run.filter),
             static_cast<const float*>(run.src) + image * run.src_image_step,
             static_cast<float*>(run.dst) + image * run.dst_image_step, run.ocpg, run.dst_plane(),
             run.icpg},
            run.workspace.raw_ptr);
}

ConvolutionForward::Algorithms ConvolutionForwardImpl::all_algorithms_group_free(
    const ConvolutionSizeRecord& size) {
    Algorithms list;
    if (size.icpg >= WIDE || size.ocpg >= WIDE)
        append_usable(std::begin(WIDE_ORDER), std::end(WIDE_ORDER), size, list);
    else
        append_usable(std::begin(NARROW_ORDER), std::end(NARROW_ORDER), size, list);
    append_usable(std::begin(INT8_ORDER), std::end(INT8_ORDER), size, list);
    const auto below = fallback::ConvolutionForwardImpl::all_algorithms_group_free(size);
    list.insert(list.end(), below.begin(), below.end());
    return list;
}

}  // namespace kern::arm_common
