// Reads a tensor that the caller keeps and may change between runs: its contents, its memory and
// its shape are taken as they are at each run.
#pragma once

#include "graph/opr/tensor_source.h"

namespace orb {

class SharedTensorInput final : public TensorSource {
public:
    static const OperatorType TYPE;

    // The tensor has a node and a dtype; a shape only by the time of a run. Inputs on one tensor
    // object are one var.
    static GraphVar* make(ComputeGraph& graph, std::shared_ptr<DeviceTensorND> tensor,
                          const OperatorConfig& config = {});

    const OperatorType* type_record() const override { return &TYPE; }
    InferSource source_kind() const override { return InferSource::MUTABLE; }

protected:
    void register_output_inference() override;

private:
    using TensorSource::TensorSource;
};

}  // namespace orb
