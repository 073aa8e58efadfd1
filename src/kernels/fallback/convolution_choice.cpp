#include "kernels/fallback/convolution_choice.h"

#include "kernels/check.h"

namespace kern::fallback {
namespace {

ConvolutionSizeRecord of_one_group(ConvolutionSizeRecord size) {
    size.group = 1;
    return size;
}

}  // namespace

bool is_plain(const ConvolutionSizeRecord& size) {
    return size.format == ConvolutionFormat::NCHW && size.spatial_ndim == 2 && size.group == 1 &&
           size.dilate_h == 1 && size.dilate_w == 1;
}

bool is_plain_float32(const ConvolutionSizeRecord& size) {
    const DType float32 = DType::Float32();
    return is_plain(size) && size.src_type == float32 && size.filter_type == float32 &&
           size.dst_type == float32;
}

template <typename Naive>
bool ConvolutionChoice<Naive>::is_left_to_naive(const TensorLayout& src, const TensorLayout& filter,
                                                const TensorLayout& dst) const {
    return this->m_param.data_type == MatrixMulDataType::INT8_TO_INT32 ||
           this->m_param.data_type == MatrixMulDataType::FLOAT_IO16_CO32 || src.is_empty() ||
           filter.is_empty() || dst.is_empty();
}

template <typename Naive>
ConvolutionSizeRecord ConvolutionChoice<Naive>::record_of(const TensorLayout& src,
                                                          const TensorLayout& filter,
                                                          const TensorLayout& dst) const {
    auto size = this->size_of(src, filter, dst);
    size.products = &products();
    return size;
}

template <typename Naive>
void ConvolutionChoice<Naive>::exec(const RawTensor& src, const RawTensor& filter,
                                    const RawTensor& dst, const Workspace& workspace) {
    if (is_left_to_naive(src.layout, filter.layout, dst.layout))
        return Naive::exec(src, filter, dst, workspace);
    exec_run(this->run_of(record_of(src.layout, filter.layout, dst.layout), src, filter, dst,
                          workspace));
}

template <typename Naive>
size_t ConvolutionChoice<Naive>::workspace_in_bytes(const TensorLayout& src,
                                                    const TensorLayout& filter,
                                                    const TensorLayout& dst) {
    if (is_left_to_naive(src, filter, dst))
        return Naive::workspace_in_bytes(src, filter, dst);
    return workspace_of_size(record_of(src, filter, dst));
}

template <typename Naive>
auto ConvolutionChoice<Naive>::all_algorithms(const TensorLayout& src, const TensorLayout& filter,
                                              const TensorLayout& dst) -> Algorithms {
    if (is_left_to_naive(src, filter, dst))
        return Naive::all_algorithms(src, filter, dst);
    return all_algorithms_of_size(record_of(src, filter, dst));
}

template <typename Naive>
auto ConvolutionChoice<Naive>::heuristic_algorithm(const TensorLayout& src,
                                                   const TensorLayout& filter,
                                                   const TensorLayout& dst, size_t workspace_limit)
    -> const Algorithm* {
    if (is_left_to_naive(src, filter, dst))
        return Naive::heuristic_algorithm(src, filter, dst, workspace_limit);
    return heuristic_of_size(record_of(src, filter, dst), workspace_limit);
}

template <typename Naive>
void ConvolutionChoice<Naive>::exec_run(const ConvolutionRunRecord& run) {
    if (run.group == 1)
        return exec_group_free(run);
    const auto one = of_one_group(run);
    const Algorithm* algorithm = choose(one);
    KERN_CHECK(algorithm->workspace_in_bytes(one) <= run.workspace.size);
    this->dispatch([run, kernel = algorithm->dispatch_kernel(one)] { run.for_each_group(kernel); });
}

template <typename Naive>
size_t ConvolutionChoice<Naive>::workspace_of_size(const ConvolutionSizeRecord& size) {
    return workspace_group_free(of_one_group(size));
}

template <typename Naive>
auto ConvolutionChoice<Naive>::all_algorithms_of_size(const ConvolutionSizeRecord& size)
    -> Algorithms {
    return all_algorithms_group_free(of_one_group(size));
}

template <typename Naive>
auto ConvolutionChoice<Naive>::heuristic_of_size(const ConvolutionSizeRecord& size,
                                                 size_t workspace_limit) -> const Algorithm* {
    return heuristic_group_free(of_one_group(size), workspace_limit);
}

template <typename Naive>
void ConvolutionChoice<Naive>::exec_group_free(const ConvolutionRunRecord& run) {
    const Algorithm* algorithm = choose(run);
    KERN_CHECK(algorithm->workspace_in_bytes(run) <= run.workspace.size);
    this->dispatch([run, kernel = algorithm->dispatch_kernel(run)] { kernel(run); });
}

template <typename Naive>
size_t ConvolutionChoice<Naive>::workspace_group_free(const ConvolutionSizeRecord& size) {
    return choose(size)->workspace_in_bytes(size);
}

template <typename Naive>
auto ConvolutionChoice<Naive>::heuristic_group_free(const ConvolutionSizeRecord& size,
                                                    size_t workspace_limit) -> const Algorithm* {
    for (const Algorithm* algorithm : all_algorithms_group_free(size)) {
        if (algorithm->workspace_in_bytes(size) <= workspace_limit)
            return algorithm;
    }
    KERN_FAIL();
}

template <typename Naive>
void ConvolutionChoice<Naive>::append_usable(const Algorithm* const* begin,
                                             const Algorithm* const* end,
                                             const ConvolutionSizeRecord& size, Algorithms& list) {
    for (; begin != end; ++begin) {
        if ((*begin)->usable(size))
            list.push_back(*begin);
    }
}

template <typename Naive>
auto ConvolutionChoice<Naive>::choose(const ConvolutionSizeRecord& size) -> const Algorithm* {
    if (this->forced_algorithm() != nullptr) {
        KERN_CHECK(this->forced_algorithm()->usable(size));
        return this->forced_algorithm();
    }
    if (m_chosen == nullptr || !m_chosen_for.same_bytes(size)) {
        m_chosen = heuristic_group_free(size, SIZE_MAX);
        m_chosen_for = size;
    }
    return m_chosen;
}

template class ConvolutionChoice<naive::ConvolutionForwardImpl>;
template class ConvolutionChoice<naive::ConvolutionBackwardDataImpl>;

}  // namespace kern::fallback
