// Elementwise with tight loops for the common broadcasts: one axis, a row or column vector against
// a matrix, one value per channel. Other broadcasts run at the naive level.
#pragma once

#include "kernels/naive/elementwise.h"

namespace kern::fallback {

class ElementwiseImpl : public naive::ElementwiseImpl {
public:
    using naive::ElementwiseImpl::ElementwiseImpl;
    void exec(const std::vector<RawTensor>& inputs, const RawTensor& output) override;
};

}  // namespace kern::fallback
