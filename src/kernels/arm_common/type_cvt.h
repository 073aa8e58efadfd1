// Type conversion with vector loops from dense QuantizedS32 to the quantised bytes; anything else
// runs at the fallback level.
#pragma once

#include "kernels/fallback/type_cvt.h"

namespace kern::arm_common {

class TypeCvtImpl final : public fallback::TypeCvtImpl {
public:
    using fallback::TypeCvtImpl::TypeCvtImpl;
    // Multiplies by the ratio of the scales where the levels below multiply by one scale and divide
    // by the other. So with scales that are not powers of two, a value within a few rounding errors
    // of a half may come out one step away from theirs; halves themselves round alike.
    void exec(const RawTensor& src, const RawTensor& dst) override;
};

}  // namespace kern::arm_common
