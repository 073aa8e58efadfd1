// Convolution by loops over outputs, channels and taps, in all directions, for up to three spatial
// axes; no workspace. One algorithm each, "DEFAULT".
#pragma once

#include "kernels/operators/convolution_operator.h"

namespace kern::naive {

// The loops for a record of one group.
void convolve(const ConvolutionRunRecord& run);
void convolve_backward_data(const ConvolutionRunRecord& run);
void convolve_backward_filter(const ConvolutionRunRecord& run);

// An algorithm for everything.
template <ConvolutionAlgorithm::Kernel KERNEL>
constexpr ConvolutionAlgorithm loops_algorithm(const char* name, HandleLevel level_tag) {
    return {name, level_tag, [](const ConvolutionSizeRecord&) { return true; },
            [](const ConvolutionSizeRecord&) { return size_t{0}; },
            [](const ConvolutionSizeRecord&) { return KERNEL; }};
}

template <typename Operator, ConvolutionAlgorithm::Kernel KERNEL>
class ConvolutionLoops : public Operator {
public:
    using Operator::Operator;
    using typename Operator::Algorithm;
    using typename Operator::Algorithms;

    void exec(const RawTensor& src, const RawTensor& filter, const RawTensor& dst,
              const Workspace& workspace) override {
        const auto size = this->size_of(src.layout, filter.layout, dst.layout);
        this->dispatch([run = this->run_of(size, src, filter, dst, workspace)] {
            run.for_each_group(KERNEL);
        });
    }
    size_t workspace_in_bytes(const TensorLayout&, const TensorLayout&,
                              const TensorLayout&) override {
        return 0;
    }
    Algorithms all_algorithms(const TensorLayout&, const TensorLayout&,
                              const TensorLayout&) override {
        return {&ALGORITHM};
    }
    const Algorithm* heuristic_algorithm(const TensorLayout&, const TensorLayout&,
                                         const TensorLayout&, size_t) override {
        return &ALGORITHM;
    }
    const char* algorithm_set_name() const override { return "DEFAULT"; }

private:
    static constexpr Algorithm ALGORITHM = loops_algorithm<KERNEL>("DEFAULT", HandleLevel::NAIVE);
};

}  // namespace kern::naive
