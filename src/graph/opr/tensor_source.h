// The base of operators whose output is a tensor that the operator keeps: nothing is computed, the
// output lives in the tensor's memory.
#pragma once

#include <memory>

#include "graph/core/compute_graph.h"
#include "graph/exec/single_node_operator.h"

namespace orb {

class TensorSource : public SingleNodeOperator {
public:
    const DeviceTensorND& get_device_value() const { return *m_tensor; }
    const std::shared_ptr<DeviceTensorND>& shared_tensor() const { return m_tensor; }
    // Whether the tensor's shape is fixed or looked at in each run.
    virtual InferSource source_kind() const = 0;
    void plan_output_memory(bool dynamic) override;

protected:
    // The tensor must have a dtype and the default format; a node in the configuration must be the
    // tensor's.
    TensorSource(ComputeGraph& graph, std::shared_ptr<DeviceTensorND> tensor,
                 const OperatorConfig& config, const std::string& default_name);

    void assign_output_nodes() override;
    void add_run_task(OperatorExecEnv&) override {}
    void run_on_node() override {}
    void release_node_resources() override;

    const DeviceTensorND& tensor() const { return *m_tensor; }

private:
    std::shared_ptr<DeviceTensorND> m_tensor;
};

}  // namespace orb
