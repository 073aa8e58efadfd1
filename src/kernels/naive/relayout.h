// Relayout element by element.
#pragma once

#include "kernels/operators/relayout.h"

namespace kern::naive {

class RelayoutImpl : public Relayout {
public:
    using Relayout::Relayout;
    void exec(const RawTensor& src, const RawTensor& dst, KernelHandle* src_handle) override;
};

}  // namespace kern::naive
