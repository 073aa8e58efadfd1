// ElementwiseMultiType with plain loops where every input is contiguous, strided along one axis or
// a scalar. Other broadcasts run at the naive level.
#pragma once

#include "kernels/naive/elementwise_multi_type.h"

namespace kern::fallback {

class ElementwiseMultiTypeImpl : public naive::ElementwiseMultiTypeImpl {
public:
    using naive::ElementwiseMultiTypeImpl::ElementwiseMultiTypeImpl;

protected:
#define KERN_MULTI_TYPE_MODE(number, NAME, method, arity) \
    void method(const BroadcastSet& inputs, const RawTensor& output) override;
#include "kernels/operators/elementwise_multi_type_modes.inc"
#undef KERN_MULTI_TYPE_MODE
};

}  // namespace kern::fallback
