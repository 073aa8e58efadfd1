// Relayout that transposes matrices of 4-byte elements in blocks of 4 x 4; other copies run at the
// fallback level.
#pragma once

#include "kernels/fallback/relayout.h"

namespace kern::armv7 {

class RelayoutImpl final : public fallback::RelayoutImpl {
public:
    using fallback::RelayoutImpl::RelayoutImpl;
    void exec(const RawTensor& src, const RawTensor& dst, KernelHandle* src_handle) override;
};

}  // namespace kern::armv7
