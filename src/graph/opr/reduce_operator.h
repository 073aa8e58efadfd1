// Collapses an axis of a tensor, or several down to a target shape.
#pragma once

#include <vector>

#include "graph/opr/kernel_operator.h"
#include "kernels/operators/reduce.h"

namespace orb {

// The kernel calls that take a tensor from one shape to another: one step per axis that collapses,
// each on the three-axis view (outer, axis, inner) of its input. Results between steps lie in the
// workspace.
class ReducePlan {
public:
    struct Step {
        kern::Reduce::Param param;
        kern::TensorLayout src;  // {outer, length, inner}
        kern::TensorLayout dst;  // {outer, 1, inner}
        size_t scratch_bytes;    // of the kernel
    };

    // Makes the plan anew, in the memory that it has, unless it is for these shapes already.
    // `target` has the axes of `source`, each of equal length or 1. Asks the kernel for its scratch
    // memory, and leaves the kernel's parameters changed.
    void update(const kern::TensorLayout& source, const kern::TensorShape& target,
                kern::DType target_dtype, const kern::Reduce::Param& param, kern::Reduce& kernel);

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

template <>
inline constexpr auto FIELDS<kern::Reduce::Param> = std::tuple{
    &kern::Reduce::Param::mode, &kern::Reduce::Param::axis, &kern::Reduce::Param::data_type};

class ReduceOperator final : public KernelOperator<ReduceOperator, kern::Reduce> {
public:
    static const OperatorType TYPE;
    static bool accepts(const Param& param);
    static size_t nr_inputs(const Param& param) { return param.axis < 0 ? 2 : 1; }

    // With an axis of at least 0 that axis collapses to length 1 and there is no target shape. With
    // a negative axis the target is a vector of integers. A sum over x to the power of 2
    // becomes a sum of squares over x. Nothing cannot be reduced to something: an axis of length 0
    // that collapses stops the process in the run. Where nothing collapses the output is a view of
    // the source. Quantised sources have a mean, a minimum and a maximum.
    static GraphVar* make(GraphVar* source, Param param, GraphVar* target_shape = nullptr,
                          const OperatorConfig& config = {});

    void plan_output_memory(bool dynamic) override;

protected:
    OperatorProperties make_properties() const override;
    void constrain_input_layouts(OperatorProperties& properties) const override;
    std::vector<InferDep> inference_deps() const override;
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    size_t workspace_size(const std::vector<InferInput>& inputs) override;
    void run_on_node() override;
    bool can_compute_value() const override { return input().size() == 1; }
    void compute_value(const Tensors& inputs, const kern::RawTensor& output) const override;
    void forward(const Tensors& inputs, const Tensors& outputs,
                 const kern::Workspace& workspace) override;

private:
    friend Base;
    ReduceOperator(const std::vector<GraphVar*>& inputs, const Param& param,
                   const OperatorConfig& config);
    // Whether the output's elements are the source's.
    bool keeps_elements(const kern::TensorShape& source, const kern::TensorShape& target) const;
    void update(ReducePlan& plan, const kern::TensorShape& source, const kern::TensorShape& target,
                kern::Reduce& kernel) const;

    ReducePlan m_plan;        // of the runs
    ReducePlan m_query_plan;  // of inference, which may be ahead of a run
};

}  // namespace orb
