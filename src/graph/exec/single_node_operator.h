// An operator that runs on one node, as one task.
#pragma once

#include <optional>
#include <vector>

#include "graph/core/operator.h"
#include "graph/memory/var_memory_manager.h"
#include "kernels/operators/elementwise.h"

namespace orb {

class SingleNodeOperator;

// One elementwise operation on a result that its leader has yet to write:
// result = mode(input, operand).
struct EpilogueStep {
    kern::ElementwiseMode mode;
    const GraphVar* operand;  // null for a mode of one input
    const GraphVar* result;
    SingleNodeOperator* op;  // that is spared
};

class SingleNodeOperator : public GraphOperator {
public:
    CompNode comp_node() const { return m_comp_node; }
    // One run of the operator, inside its node's task: memory of dynamic outputs, the computation,
    // and the release of inputs that nobody else will read.
    void run_step();

    // How this operator's output follows from one of its inputs, if a leader can compute it
    // element by element while it writes that input.
    virtual std::optional<EpilogueStep> as_epilogue(const GraphVar* input);
    // Takes the steps that may follow this operator, each the only reader of the output before it,
    // for all runs of a compiled order. How many it keeps; in each run it does as many of these as
    // it can, from the first on, and tells all of them. None, unless the operator is a leader.
    virtual size_t absorb(std::vector<EpilogueStep> steps);
    // Told in each run by the leader, and for each new order: whether the output is computed
    // already when this operator's turn comes.
    void set_absorbed(bool yes) { m_is_absorbed = yes; }

    void hand_over(std::vector<std::shared_ptr<void>>& kept) override;

protected:
    using GraphOperator::GraphOperator;

    // The operator's own computation, on inputs and outputs that have memory. Not called when every
    // output that carries content is empty. What it submits to the node points at values, and
    // otherwise only at what `hand_over` gives away.
    virtual void run_on_node() = 0;

    // The node of the configuration, or that of the first input; all outputs get it.
    void assign_output_nodes() override;
    void on_output_comp_node_set() override;
    OperatorProperties make_properties() const override;
    void add_run_task(OperatorExecEnv& env) override;

    // The value of an input, in a layout that the operator can read.
    const DeviceTensorND& input_value(size_t index) const;
    const DeviceTensorND& output_value(size_t index) const { return output(index)->device_value(); }

    // Takes the operator out of its make function into the graph; returns the first output of what
    // stands there now: that of an equal operator, maybe, or what a pass put in its place.
    static GraphVar* insert(std::unique_ptr<GraphOperator> op);

    void release_node_resources() override;

private:
    bool has_content_to_compute() const;
    void copy_unreadable_inputs();

    CompNode m_comp_node;
    // Contiguous copies on this operator's node of inputs whose layout it cannot read; without a
    // shape where the input itself is read. Their memory is kept.
    std::vector<DeviceTensorND> m_input_copies;
    bool m_is_absorbed = false;
};

}  // namespace orb
