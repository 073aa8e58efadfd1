#include "kernels/x86/convolution_forward.h"

#include "kernels/fallback/packed_product.h"
#include "kernels/x86/kernel_table.h"
#include "kernels/x86/patches_product.h"

namespace kern::x86 {
namespace {

using Algorithm = ConvolutionAlgorithm;

bool is_float32(const ConvolutionSizeRecord& size) {
    const DType float32 = DType::Float32();
    return size.format == ConvolutionFormat::NCHW && size.spatial_ndim == 2 &&
           size.src_type == float32 && size.filter_type == float32 && size.dst_type == float32;
}

bool has_one_channel(const ConvolutionSizeRecord& size) {
    return is_float32(size) && size.icpg == 1 && size.mode == ConvolutionMode::CROSS_CORRELATION &&
           size.fw <= PLANE_TAPS && size.stride_w <= 2;
}

void convolve_planes(const ConvolutionRunRecord& run) {
    const KernelTable& kernels = kernel_table(instruction_set());
    PlaneConvolution plane{};
    plane.ih = run.ih;
    plane.iw = run.iw;
    plane.fh = run.fh;
    plane.fw = run.fw;
    plane.oh = run.oh;
    plane.ow = run.ow;
    plane.stride_h = run.stride_h;
    plane.stride_w = run.stride_w;
    plane.pad_h = run.pad_h;
    plane.pad_w = run.pad_w;
    plane.dilate_h = run.dilate_h;
    plane.dilate_w = run.dilate_w;
    for (size_t image = 0; image < run.n; ++image) {
        plane.src = static_cast<const float*>(run.src) + image * run.src_image_step;
        plane.dst = static_cast<float*>(run.dst) + image * run.dst_image_step;
        plane.filter = static_cast<const float*>(run.filter);
        for (size_t channel = 0; channel < run.ocpg; ++channel) {
            kernels.convolve_plane(plane);
            plane.dst += run.dst_plane();
            plane.filter += run.taps();
        }
    }
}

// With one channel and few filters the patches' products would be vectors of a few elements.
const Algorithm PLANES = {
    "X86PLANES", HandleLevel::X86, &has_one_channel,
    [](const ConvolutionSizeRecord&) { return size_t{0}; },
    [](const ConvolutionSizeRecord&) -> Algorithm::Kernel { return &convolve_planes; }};
const Algorithm PATCHES = {"X86PATCHES", HandleLevel::X86, &is_float32, &patches_workspace,
                           [](const ConvolutionSizeRecord&) -> Algorithm::Kernel {
                               return [](const ConvolutionRunRecord& run) {
                                   multiply_patches(run, run.workspace.raw_ptr);
                               };
                           }};
// As measured: from more filters on, a product pays even if it is as shallow as one channel.
constexpr size_t FEW_FILTERS = 8;
const Algorithm* const FEW_ORDER[] = {&PLANES, &PATCHES};
const Algorithm* const MANY_ORDER[] = {&PATCHES, &PLANES};

const ConvolutionProducts PRODUCTS = {&fallback::packed_product_workspace,
                                      &fallback::packed_product, &patches_workspace,
                                      &multiply_patches};

}  // namespace

ConvolutionForward::Algorithms ConvolutionForwardImpl::all_algorithms_group_free(
    const ConvolutionSizeRecord& size) {
    Algorithms list;
    const auto& order = size.ocpg <= FEW_FILTERS ? FEW_ORDER : MANY_ORDER;
    append_usable(std::begin(order), std::end(order), size, list);
    const Algorithms below = fallback::ConvolutionForwardImpl::all_algorithms_group_free(size);
    list.insert(list.end(), below.begin(), below.end());
    return list;
}

const ConvolutionProducts& ConvolutionForwardImpl::products() const {
    return PRODUCTS;
}

}  // namespace kern::x86
