// Type conversion of a source of any strides, element by element.
#pragma once

#include "kernels/operators/type_cvt.h"

namespace kern::naive {

class TypeCvtImpl : public TypeCvt {
public:
    using TypeCvt::TypeCvt;
    void exec(const RawTensor& src, const RawTensor& dst) override;
};

}  // namespace kern::naive
