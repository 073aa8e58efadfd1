#include "kernels/fallback/convolution_forward.h"

#include "kernels/check.h"
#include "kernels/fallback/packed_product.h"

namespace kern::fallback {
namespace {

using Algorithm = ConvolutionAlgorithm;

ConvolutionSizeRecord of_one_group(ConvolutionSizeRecord size) {
    size.group = 1;
    return size;
}

bool is_packable(const ConvolutionSizeRecord& size) {
    const DType float32 = DType::Float32();
    return size.format == ConvolutionFormat::NCHW && size.src_type == float32 &&
           size.filter_type == float32 && size.dst_type == float32 && size.spatial_ndim == 2 &&
           size.group == 1 && size.dilate_h == 1 && size.dilate_w == 1;
}

const Algorithm PACKED = {"F", HandleLevel::FALLBACK, &is_packable, &packed_patches_workspace,
                          [](const ConvolutionSizeRecord&) -> Algorithm::Kernel {
                              return [](const ConvolutionRunRecord& run) {
                                  packed_patches_product(run, run.workspace.raw_ptr);
                              };
                          }};
const Algorithm NAIVE = {
    "N", HandleLevel::FALLBACK, [](const ConvolutionSizeRecord&) { return true; },
    [](const ConvolutionSizeRecord&) { return size_t{0}; }, &naive::convolution_kernel};
const Algorithm* const OWN[] = {&PACKED, &NAIVE};

const ConvolutionProducts PRODUCTS = {&packed_product_workspace, &packed_product,
                                      &packed_patches_workspace, &packed_patches_product};

}  // namespace

const ConvolutionProducts& ConvolutionForwardImpl::products() const {
    return PRODUCTS;
}

bool ConvolutionForwardImpl::is_left_to_naive() const {
    return m_param.data_type == MatrixMulDataType::INT8_TO_INT32 ||
           m_param.data_type == MatrixMulDataType::FLOAT_IO16_CO32;
}

ConvolutionSizeRecord ConvolutionForwardImpl::size_of(const TensorLayout& src,
                                                      const TensorLayout& filter,
                                                      const TensorLayout& dst) const {
    auto size = convolution_size(m_param, src, filter, dst);
    size.products = &products();
    return size;
}

void ConvolutionForwardImpl::exec(const RawTensor& src, const RawTensor& filter,
                                  const RawTensor& dst, const Workspace& workspace) {
    if (is_left_to_naive())
        return naive::ConvolutionForwardImpl::exec(src, filter, dst, workspace);
    ConvolutionRunRecord run(size_of(src.layout, filter.layout, dst.layout));
    run.src = src.raw_ptr;
    run.filter = filter.raw_ptr;
    run.dst = dst.raw_ptr;
    run.workspace = workspace;
    if (!dst.layout.is_empty())
        exec_run(run);
}

size_t ConvolutionForwardImpl::workspace_in_bytes(const TensorLayout& src,
                                                  const TensorLayout& filter,
                                                  const TensorLayout& dst) {
    if (is_left_to_naive() || dst.is_empty())
        return 0;
    return workspace_of_size(size_of(src, filter, dst));
}

ConvolutionForward::Algorithms ConvolutionForwardImpl::all_algorithms(const TensorLayout& src,
                                                                      const TensorLayout& filter,
                                                                      const TensorLayout& dst) {
    if (is_left_to_naive())
        return naive::ConvolutionForwardImpl::all_algorithms(src, filter, dst);
    return all_algorithms_of_size(size_of(src, filter, dst));
}

const Algorithm* ConvolutionForwardImpl::heuristic_algorithm(const TensorLayout& src,
                                                             const TensorLayout& filter,
                                                             const TensorLayout& dst,
                                                             size_t workspace_limit) {
    if (is_left_to_naive())
        return naive::ConvolutionForwardImpl::heuristic_algorithm(src, filter, dst,
                                                                  workspace_limit);
    return heuristic_of_size(size_of(src, filter, dst), workspace_limit);
}

void ConvolutionForwardImpl::exec_run(const ConvolutionRunRecord& run) {
    if (run.group == 1)
        return exec_group_free(run);
    const auto one = of_one_group(run);
    const Algorithm* algorithm = choose(one);
    KERN_CHECK(algorithm->workspace_in_bytes(one) <= run.workspace.size);
    dispatch([run, kernel = algorithm->dispatch_kernel(one)] {
        for (size_t group = 0; group < run.group; ++group)
            kernel(run.group_at(group));
    });
}

size_t ConvolutionForwardImpl::workspace_of_size(const ConvolutionSizeRecord& size) {
    return workspace_group_free(of_one_group(size));
}

ConvolutionForward::Algorithms ConvolutionForwardImpl::all_algorithms_of_size(
    const ConvolutionSizeRecord& size) {
    return all_algorithms_group_free(of_one_group(size));
}

const Algorithm* ConvolutionForwardImpl::heuristic_of_size(const ConvolutionSizeRecord& size,
                                                           size_t workspace_limit) {
    return heuristic_group_free(of_one_group(size), workspace_limit);
}

void ConvolutionForwardImpl::exec_group_free(const ConvolutionRunRecord& run) {
    const Algorithm* algorithm = choose(run);
    KERN_CHECK(algorithm->workspace_in_bytes(run) <= run.workspace.size);
    dispatch([run, kernel = algorithm->dispatch_kernel(run)] { kernel(run); });
}

size_t ConvolutionForwardImpl::workspace_group_free(const ConvolutionSizeRecord& size) {
    return choose(size)->workspace_in_bytes(size);
}

ConvolutionForward::Algorithms ConvolutionForwardImpl::all_algorithms_group_free(
    const ConvolutionSizeRecord& size) {
    Algorithms list;
    append_usable(std::begin(OWN), std::end(OWN), size, list);
    return list;
}

const Algorithm* ConvolutionForwardImpl::heuristic_group_free(const ConvolutionSizeRecord& size,
                                                              size_t workspace_limit) {
    for (const Algorithm* algorithm : all_algorithms_group_free(size)) {
        if (algorithm->workspace_in_bytes(size) <= workspace_limit)
            return algorithm;
    }
    KERN_FAIL();
}

void ConvolutionForwardImpl::append_usable(const Algorithm* const* begin,
                                           const Algorithm* const* end,
                                           const ConvolutionSizeRecord& size, Algorithms& list) {
    for (; begin != end; ++begin) {
        if ((*begin)->usable(size))
            list.push_back(*begin);
    }
}

const Algorithm* ConvolutionForwardImpl::choose(const ConvolutionSizeRecord& size) {
    if (forced_algorithm() != nullptr) {
        KERN_CHECK(forced_algorithm()->usable(size));
        return forced_algorithm();
    }
    if (m_chosen == nullptr || !m_chosen_for.same_bytes(size)) {
        m_chosen = heuristic_group_free(size, SIZE_MAX);
        m_chosen_for = size;
    }
    return m_chosen;
}

}  // namespace kern::fallback
