#include "kernels/fallback/convolution_backward_data.h"

#include <algorithm>

#include "kernels/checked_math.h"
#include "kernels/fallback/convolution_forward.h"
#include "kernels/operators/convolution_patches.h"

namespace kern::fallback {
namespace {

using Algorithm = ConvolutionAlgorithm;

// src plane += factor * dst plane, where one tap of a filter takes each output.
void scatter_tap(const ConvolutionRunRecord& run, size_t tap, float factor, const float* dst,
                 float* src) {
    const ConvolutionAxes axes(run);
    const PatchAxis& columns = axes.columns;
    const ptrdiff_t left = columns.element(0, tap % run.fw);
    const auto length = static_cast<ptrdiff_t>(columns.length);
    const size_t begin = left < 0 ? columns.outputs_before(0, left, run.ow) : 0;
    const size_t end = left < length ? columns.outputs_before(length, left, run.ow) : 0;
    for (size_t y = 0; y < run.oh; ++y, dst += run.ow) {
        const ptrdiff_t row = axes.rows.element(y, tap / run.fw);
        if (!axes.rows.is_inside(row) || begin >= end)
            continue;
        float* target = src + static_cast<size_t>(row) * run.iw;
        for (size_t x = begin; x < end; ++x)
            target[left + static_cast<ptrdiff_t>(x) * columns.stride] += factor * dst[x];
    }
}

float* dst_image(const ConvolutionRunRecord& run, size_t image) {
    return static_cast<float*>(run.dst) + image * run.dst_image_step;
}
// All zeros.
float* new_src_image(const ConvolutionRunRecord& run, size_t image) {
    float* src = static_cast<float*>(run.src) + image * run.src_image_step;
    std::fill_n(src, run.icpg * run.src_plane(), 0.0f);
    return src;
}

void scatter_directly(const ConvolutionRunRecord& run) {
    for (size_t image = 0; image < run.n; ++image) {
        float* src = new_src_image(run, image);
        const float* dst = dst_image(run, image);
        const auto* factor = static_cast<const float*>(run.filter);
        for (size_t out = 0; out < run.ocpg; ++out) {
            for (size_t k = 0; k < run.depth(); ++k)
                scatter_tap(run, k % run.taps(), *factor++, dst + out * run.dst_plane(),
                            src + k / run.taps() * run.src_plane());
        }
    }
}

constexpr size_t COLUMNS_ALIGNMENT = 16;
constexpr MatrixMulParam TRANSPOSED_A = {true, false, MatrixMulDataType::DEFAULT};

TensorLayout matrix(size_t rows, size_t columns) {
    return TensorLayout({rows, columns}, DType::Float32());
}

// The columns {depth, oh * ow}, a product for each tap and output.
size_t columns_bytes(const ConvolutionSizeRecord& size) {
    const size_t values = checked_mul(size.depth(), size.dst_plane());
    return round_up(checked_mul(values, sizeof(float)), COLUMNS_ALIGNMENT);
}

size_t matmul_workspace(const ConvolutionSizeRecord& size) {
    const size_t product =
        size.products->matrix_workspace(size.depth(), size.dst_plane(), size.ocpg);
    return checked_add(checked_add(columns_bytes(size), COLUMNS_ALIGNMENT), product);
}

// The transposed filter times dst, which col2im adds up.
void multiply_and_scatter(const ConvolutionRunRecord& run) {
    uint8_t* base = align_up(run.workspace.raw_ptr, COLUMNS_ALIGNMENT);
    const RawTensor filter(run.filter, matrix(run.ocpg, run.depth()));
    const RawTensor columns(base, matrix(run.depth(), run.dst_plane()));
    for (size_t image = 0; image < run.n; ++image) {
        const RawTensor dst(dst_image(run, image), matrix(run.ocpg, run.dst_plane()));
        const MatrixMulArgs args(TRANSPOSED_A, filter, dst, columns);
        run.products->multiply_matrix(args, base + columns_bytes(run));
        float* src = new_src_image(run, image);
        for (size_t k = 0; k < run.depth(); ++k)
            scatter_tap(run, k % run.taps(), 1, columns.ptr<float>() + k * run.dst_plane(),
                        src + k / run.taps() * run.src_plane());
    }
}

const Algorithm MATMUL = {
    "DeconvMatmul", HandleLevel::FALLBACK, &is_plain_float32, &matmul_workspace,
    [](const ConvolutionSizeRecord&) -> Algorithm::Kernel { return &multiply_and_scatter; }};
const Algorithm DIRECT = {
    "DeconvDirect", HandleLevel::FALLBACK, &is_plain_float32,
    [](const ConvolutionSizeRecord&) { return size_t{0}; },
    [](const ConvolutionSizeRecord&) -> Algorithm::Kernel { return &scatter_directly; }};
const Algorithm NAIVE =
    naive::loops_algorithm<&naive::convolve_backward_data>("NCBD", HandleLevel::FALLBACK);
const Algorithm* const OF_LEVELS_ABOVE[] = {&MATMUL, &DIRECT};
const Algorithm* const OWN[] = {&NAIVE};

}  // namespace

ConvolutionBackwardDataImpl::ConvolutionBackwardDataImpl(KernelHandle* handle)
    : ConvolutionChoice(handle) {
    // From fallback on every level's class derives from that of fallback.
    const auto forward = handle->create_operator<ConvolutionForward>();
    m_products = &static_cast<const ConvolutionForwardImpl&>(*forward).products();
}

ConvolutionBackwardData::Algorithms ConvolutionBackwardDataImpl::all_algorithms_group_free(
    const ConvolutionSizeRecord& size) {
    Algorithms list;
    if (handle()->level() > HandleLevel::FALLBACK)
        append_usable(std::begin(OF_LEVELS_ABOVE), std::end(OF_LEVELS_ABOVE), size, list);
    append_usable(std::begin(OWN), std::end(OWN), size, list);
    return list;
}

}  // namespace kern::fallback
