// A value that never changes. Equal scalars on one node share one tensor, in all graphs of the
// process.
#pragma once

#include "graph/opr/tensor_source.h"

namespace orb {

class ConstantTensor final : public TensorSource {
public:
    static const OperatorType TYPE;

    // The configuration names the node.
    static GraphVar* make_scalar(ComputeGraph& graph, float value, const OperatorConfig& config);
    static GraphVar* make_scalar(ComputeGraph& graph, int32_t value, const OperatorConfig& config);
    // A copy of the value; the tensor is contiguous.
    static GraphVar* make(ComputeGraph& graph, const HostTensorND& value,
                          const OperatorConfig& config);

    const OperatorType* type_record() const override { return &TYPE; }
    InferSource source_kind() const override { return InferSource::CONSTANT; }
    const HostTensorND& host_value() const { return m_host_value; }

protected:
    void register_output_inference() override;

private:
    ConstantTensor(ComputeGraph& graph, std::shared_ptr<DeviceTensorND> tensor,
                   const HostTensorND& value, const OperatorConfig& config);

    HostTensorND m_host_value;
};

}  // namespace orb
