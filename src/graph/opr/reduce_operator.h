// Collapses an axis of a tensor, or several down to a target shape.
#pragma once

#include <vector>

#include "graph/core/compute_graph.h"
#include "graph/core/single_node_operator.h"
#include "kernels/reduce.h"

namespace orb {

// The kernel calls that take a tensor from one shape to another: one step per axis that collapses,
// each on the three-axis view (outer, axis, inner) of its input. Results between steps lie in the
// workspace.
class ReducePlan {
public:
    struct Step {
        kern::ReduceMode mode;
        kern::TensorLayout src;  // {outer, length, inner}
        kern::TensorLayout dst;  // {outer, 1, inner}
        size_t scratch_bytes;    // of the kernel
    };

    // `target` has the axes of `source`, each of equal length or 1.
    ReducePlan() = default;
    ReducePlan(const kern::TensorLayout& source, const kern::TensorShape& target,
               kern::DType target_dtype, const kern::Reduce::Param& param, kern::Reduce& kernel);

    bool is_for(const kern::TensorShape& source, const kern::TensorShape& target) const;
    bool is_copy() const { return m_steps.empty(); }
    size_t workspace_bytes() const;
    void run(const kern::RawTensor& src, const kern::RawTensor& dst,
             const kern::Workspace& workspace, kern::Reduce& kernel) const;

private:
    size_t scratch_offset() const;

    kern::TensorShape m_source;
    kern::TensorShape m_target;
    std::vector<Step> m_steps;
    size_t m_between_bytes = 0;  // of one of the two buffers between steps
};

class ReduceOperator final : public SingleNodeOperator {
public:
    using Param = kern::Reduce::Param;

    // With an axis of at least 0 that axis collapses to length 1 and there is no target shape. With
    // a negative axis the target is a vector of integers. A sum over x to the power of 2 becomes a
    // sum of squares over x. Nothing cannot be reduced to something: an axis of length 0 that
    // collapses stops the process in the run.
    static GraphVar* make(GraphVar* source, Param param, GraphVar* target_shape = nullptr,
                          const OperatorConfig& config = {});

    const OperatorType* type_record() const override;
    const Param& param() const { return m_param; }

protected:
    OperatorProperties make_properties() const override;
    void register_output_inference() override;
    void run_on_node() override;
    void release_node_resources() override;

private:
    ReduceOperator(GraphVar* source, const Param& param, GraphVar* target_shape,
                   const OperatorConfig& config);
    kern::TensorShape output_shape(const std::vector<InferInput>& inputs) const;
    const ReducePlan& plan_for(const kern::TensorShape& source, const kern::TensorShape& target);

    Param m_param;
    std::unique_ptr<kern::Reduce> m_kernel;
    ReducePlan m_plan;
};

}  // namespace orb
