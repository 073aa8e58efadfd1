#include "kernels/fallback/convolution_forward.h"

#include "kernels/fallback/packed_product.h"

namespace kern::fallback {
namespace {

using Algorithm = ConvolutionAlgorithm;

const Algorithm PACKED = {"F", HandleLevel::FALLBACK, &is_plain_float32, &packed_patches_workspace,
                          [](const ConvolutionSizeRecord&) -> Algorithm::Kernel {
                              return [](const ConvolutionRunRecord& run) {
                                  packed_patches_product(run, run.workspace.raw_ptr);
                              };
                          }};
const Algorithm NAIVE = naive::loops_algorithm<&naive::convolve>("N", HandleLevel::FALLBACK);
const Algorithm* const OWN[] = {&PACKED, &NAIVE};

const ConvolutionProducts PRODUCTS = {&packed_product_workspace, &packed_product,
                                      &packed_patches_workspace, &packed_patches_product};

}  // namespace

const ConvolutionProducts& ConvolutionForwardImpl::products() const {
    return PRODUCTS;
}

ConvolutionForward::Algorithms ConvolutionForwardImpl::all_algorithms_group_free(
    const ConvolutionSizeRecord& size) {
    Algorithms list;
    append_usable(std::begin(OWN), std::end(OWN), size, list);
    return list;
}

}  // namespace kern::fallback
