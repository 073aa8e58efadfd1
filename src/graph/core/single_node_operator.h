// An operator that runs on one node, as one task.
#pragma once

#include "graph/core/operator.h"

namespace orb {

class SingleNodeOperator : public GraphOperator {
public:
    CompNode comp_node() const { return m_comp_node; }
    // One run of the operator, inside its node's task: memory of dynamic outputs, the computation,
    // and the release of inputs that nobody else will read.
    void run_step();

protected:
    using GraphOperator::GraphOperator;

    // The operator's own computation, on inputs and outputs that have memory. Not called when every
    // output that carries content is empty.
    virtual void run_on_node() = 0;

    // The node of the configuration, or that of the first input; all outputs get it.
    void assign_output_nodes() override;
    OperatorProperties make_properties() const override;
    void add_run_task(OperatorExecEnv& env) override;

    // The value of an input, in a layout that the operator can read.
    const DeviceTensorND& input_value(size_t index) const;
    const DeviceTensorND& output_value(size_t index) const { return output(index)->device_value(); }

    // Takes the operator out of its make function into the graph; returns the first output of what
    // stands there now, which may be that of an equal operator.
    static GraphVar* insert(std::unique_ptr<GraphOperator> op);

    CompNode m_comp_node;

    void release_node_resources() override;

private:
    bool has_content_to_compute() const;
    void copy_unreadable_inputs();

    // Contiguous copies of inputs whose layout the operator cannot read; their memory is kept.
    std::vector<std::pair<const GraphVar*, DeviceTensorND>> m_input_copies;
};

}  // namespace orb
