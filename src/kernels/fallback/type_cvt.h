// Type conversion with a plain loop for a dense source; other sources run at the naive level.
#pragma once

#include "kernels/naive/type_cvt.h"

namespace kern::fallback {

class TypeCvtImpl : public naive::TypeCvtImpl {
public:
    using naive::TypeCvtImpl::TypeCvtImpl;
    void exec(const RawTensor& src, const RawTensor& dst) override;
};

}  // namespace kern::fallback
