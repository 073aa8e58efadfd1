// Relayout over the axes that both tensors share, with one memory copy for each contiguous run.
#pragma once

#include "kernels/naive/relayout.h"

namespace kern::fallback {

class RelayoutImpl : public naive::RelayoutImpl {
public:
    using naive::RelayoutImpl::RelayoutImpl;
    void exec(const RawTensor& src, const RawTensor& dst, KernelHandle* src_handle) override;
};

}  // namespace kern::fallback
