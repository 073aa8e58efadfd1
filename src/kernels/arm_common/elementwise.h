// Elementwise with vector forms of the most common modes, for contiguous inputs and scalars, rows
// and channels broadcast against them. Other calls run at the fallback level.
#pragma once

#include "kernels/fallback/elementwise.h"

namespace kern::arm_common {

class ElementwiseImpl : public fallback::ElementwiseImpl {
public:
    using fallback::ElementwiseImpl::ElementwiseImpl;
    void exec(const std::vector<RawTensor>& inputs, const RawTensor& output) override;
};

}  // namespace kern::arm_common
