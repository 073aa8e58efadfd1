// Reads a tensor that the caller keeps and may change between runs: its contents, its memory and
// its shape are taken as they are at each run.
#pragma once

#include "graph/opr/tensor_source.h"

namespace orb {

// What the tensor is for whoever writes the graph to a file: an input, of which only the shape is
// written, or a parameter with its value.
enum class TensorRole : uint8_t { INPUT = 0, PARAMETER = 1 };

class SharedTensorInput final : public TensorSource {
public:
    static const OperatorType TYPE;

    // The tensor has a node and a dtype; a shape only by the time of a run. Inputs on one tensor
    // object are one var, with the role that the first was given.
    static GraphVar* make(ComputeGraph& graph, std::shared_ptr<DeviceTensorND> tensor,
                          const OperatorConfig& config = {}, TensorRole role = TensorRole::INPUT);

    const OperatorType* type_record() const override { return &TYPE; }
    InferSource source_kind() const override { return InferSource::MUTABLE; }
    TensorRole role() const { return m_role; }

protected:
    void register_output_inference() override;

private:
    SharedTensorInput(ComputeGraph& graph, std::shared_ptr<DeviceTensorND> tensor,
                      const OperatorConfig& config, TensorRole role);

    const TensorRole m_role;
};

}  // namespace orb
