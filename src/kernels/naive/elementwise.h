// Elementwise by one loop over the output, with a tensor iterator for each input.
#pragma once

#include "kernels/operators/elementwise.h"

namespace kern::naive {

class ElementwiseImpl : public Elementwise {
public:
    using Elementwise::Elementwise;
    void exec(const std::vector<RawTensor>& inputs, const RawTensor& output) override;
};

}  // namespace kern::naive
