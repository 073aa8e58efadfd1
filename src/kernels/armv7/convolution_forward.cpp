#include "kernels/armv7/convolution_forward.h"

#include "kernels/arm_common/direct_float.h"
#include "kernels/arm_common/direct_frame.h"
#include "kernels/armv7/float_product.h"
#include "kernels/operators/convolution_patches.h"

namespace kern::armv7 {
namespace {

using Algorithm = ConvolutionAlgorithm;

bool is_plain_float(const ConvolutionSizeRecord& size) {
    return fallback::is_plain_float32(size) && size.mode == ConvolutionMode::CROSS_CORRELATION;
}
bool is_strided(const ConvolutionSizeRecord& size) {
    return is_plain_float(size) && size.stride_h == 2 && size.stride_w == 2 &&
           arm_common::has_square_filter(size, {2, 3, 5, 7});
}
bool is_float_pointwise(const ConvolutionSizeRecord& size) {
    return is_plain_float(size) && is_pointwise(size);
}

size_t matrix_workspace(size_t, size_t, size_t) {
    return FLOAT_PRODUCT_WORKSPACE;
}
void multiply_matrix(const MatrixMulArgs& args, void* workspace) {
    FloatProduct product;
    product.rows = args.rows;
    product.columns = args.columns;
    product.depth = args.depth;
    product.a = static_cast<const float*>(args.a);
    product.transpose_a = args.a_k != 1;
    product.lda = product.transpose_a ? args.a_k : args.a_row;
    product.b = static_cast<const float*>(args.b);
    product.ldb = args.b_k;
    product.c = static_cast<float*>(args.c);
    product.ldc = args.c_row;
    float_product(product, workspace);
}
size_t record_workspace(const ConvolutionSizeRecord&) {
    return FLOAT_PRODUCT_WORKSPACE;
}
const ConvolutionProducts PRODUCTS = {&matrix_workspace, &multiply_matrix, &record_workspace,
                                      &float_patches_product};

const Algorithm STRIDE2 = {"ARMV7F32STRD2", HandleLevel::ARM_COMMON, &is_strided,
                           &arm_common::direct_workspace, &arm_common::float_stride2_kernel};
const Algorithm POINTWISE = {
    "F32C11", HandleLevel::ARM_COMMON, &is_float_pointwise, &record_workspace,
    [](const ConvolutionSizeRecord&) -> Algorithm::Kernel { return &arm_common::multiply_planes; }};
const Algorithm* const OWN[] = {&STRIDE2, &POINTWISE};

}  // namespace

const ConvolutionProducts& ConvolutionForwardImpl::products() const {
    return PRODUCTS;
}

ConvolutionForward::Algorithms ConvolutionForwardImpl::all_algorithms_group_free(
    const ConvolutionSizeRecord& size) {
    Algorithms list;
    append_usable(std::begin(OWN), std::end(OWN), size, list);
    const auto below = arm_common::ConvolutionForwardImpl::all_algorithms_group_free(size);
    list.insert(list.end(), below.begin(), below.end());
    return list;
}

}  // namespace kern::armv7
