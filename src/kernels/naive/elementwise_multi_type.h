// ElementwiseMultiType by one loop over the output, with a tensor iterator for each input.
#pragma once

#include "kernels/operators/elementwise_multi_type.h"

namespace kern::naive {

class ElementwiseMultiTypeImpl : public ElementwiseMultiType {
public:
    using ElementwiseMultiType::ElementwiseMultiType;

protected:
#define KERN_MULTI_TYPE_MODE(number, NAME, method, arity) \
    void method(const BroadcastSet& inputs, const RawTensor& output) override;
#include "kernels/operators/elementwise_multi_type_modes.inc"
#undef KERN_MULTI_TYPE_MODE
};

}  // namespace kern::naive
