// CondTake by a list of the selected positions in the workspace, with their number behind it.
#pragma once

#include "kernels/operators/cond_take.h"

namespace kern::naive {

class CondTakeImpl final : public CondTake {
public:
    using CondTake::CondTake;
    Outputs exec(const RawTensor& data, const RawTensor& mask, const Workspace& workspace,
                 const OutputAllocator& output_allocator) override;
    size_t workspace_in_bytes(const TensorLayout& data, const TensorLayout& mask) override;
};

}  // namespace kern::naive
