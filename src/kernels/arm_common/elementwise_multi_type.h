// ElementwiseMultiType with vector forms of the shifts by one count for all elements and of the
// quantised sums. Other calls run at the fallback level.
#pragma once

#include "kernels/fallback/elementwise_multi_type.h"

namespace kern::arm_common {

class ElementwiseMultiTypeImpl : public fallback::ElementwiseMultiTypeImpl {
public:
    using fallback::ElementwiseMultiTypeImpl::ElementwiseMultiTypeImpl;

protected:
    void shift_to_int8(const BroadcastSet& inputs, const RawTensor& output) override;
    void shift_to_int16(const BroadcastSet& inputs, const RawTensor& output) override;
    void quantised_add(const BroadcastSet& inputs, const RawTensor& output) override;
    void quantised_add_relu(const BroadcastSet& inputs, const RawTensor& output) override;
};

// Whether a call of the mode with these inputs has a vector form.
bool has_vector_form(ElementwiseMultiType::Mode mode, const BroadcastSet& inputs);

}  // namespace kern::arm_common
