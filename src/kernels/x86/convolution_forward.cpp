#include "kernels/x86/convolution_forward.h"

#include "kernels/fallback/packed_product.h"
#include "kernels/x86/patches_product.h"

namespace kern::x86 {
namespace {

using Algorithm = ConvolutionAlgorithm;

bool is_float32(const ConvolutionSizeRecord& size) {
    const DType float32 = DType::Float32();
    return size.format == ConvolutionFormat::NCHW && size.spatial_ndim == 2 &&
           size.src_type == float32 && size.filter_type == float32 && size.dst_type == float32;
}

const Algorithm PATCHES = {"X86PATCHES", HandleLevel::X86, &is_float32, &patches_workspace,
                           [](const ConvolutionSizeRecord&) -> Algorithm::Kernel {
                               return [](const ConvolutionRunRecord& run) {
                                   multiply_patches(run, run.workspace.raw_ptr);
                               };
                           }};
const Algorithm* const OWN[] = {&PATCHES};

const ConvolutionProducts PRODUCTS = {&fallback::packed_product_workspace,
                                      &fallback::packed_product, &patches_workspace,
                                      &multiply_patches};

}  // namespace

ConvolutionForward::Algorithms ConvolutionForwardImpl::all_algorithms_group_free(
    const ConvolutionSizeRecord& size) {
    Algorithms list;
    append_usable(std::begin(OWN), std::end(OWN), size, list);
    const Algorithms below = fallback::ConvolutionForwardImpl::all_algorithms_group_free(size);
    list.insert(list.end(), below.begin(), below.end());
    return list;
}

const ConvolutionProducts& ConvolutionForwardImpl::products() const {
    return PRODUCTS;
}

}  // namespace kern::x86
