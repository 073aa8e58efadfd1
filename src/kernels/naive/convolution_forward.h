// Convolution by loops over outputs, channels and taps; no workspace. One algorithm, "DEFAULT".
#pragma once

#include "kernels/operators/convolution_forward.h"

namespace kern::naive {

class ConvolutionForwardImpl : public ConvolutionForward {
public:
    using ConvolutionForward::ConvolutionForward;
    void exec(const RawTensor& src, const RawTensor& filter, const RawTensor& dst,
              const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& filter,
                              const TensorLayout& dst) override;
    Algorithms all_algorithms(const TensorLayout& src, const TensorLayout& filter,
                              const TensorLayout& dst) override;
    const Algorithm* heuristic_algorithm(const TensorLayout& src, const TensorLayout& filter,
                                         const TensorLayout& dst, size_t workspace_limit) override;
    const char* algorithm_set_name() const override { return "DEFAULT"; }
};

// The loops for a record of one group: what the levels above run as "N".
ConvolutionAlgorithm::Kernel convolution_kernel(const ConvolutionSizeRecord& size);

}  // namespace kern::naive
