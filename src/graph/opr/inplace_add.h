// Adds to a var where it stands: the output is the first input's memory, also where that is a
// tensor which the caller keeps. Nothing orders other readers of the first input: they see it
// before or after. A constant, whose memory other graphs share, cannot be added to.
#pragma once

#include "graph/opr/kernel_operator.h"
#include "kernels/operators/elementwise.h"

namespace orb {

class InplaceAdd final : public KernelOperator<InplaceAdd, kern::Elementwise, NoParam> {
public:
    static const OperatorType TYPE;
    static size_t nr_inputs(const Param&) { return 2; }

    // Of one dtype; the delta is broadcast to the destination's shape.
    static GraphVar* make(GraphVar* destination, GraphVar* delta,
                          const OperatorConfig& config = {});
    void plan_output_memory(bool dynamic) override;

protected:
    void on_inserted() override;
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    void forward(const Tensors& inputs, const Tensors& outputs, const kern::Workspace&) override;
    // The kernel reads every layout, and a copy of the destination would not be it.
    void constrain_input_layouts(OperatorProperties&) const override {}

private:
    friend Base;
    friend KernelOperator;
    InplaceAdd(const std::vector<GraphVar*>& inputs, const Param& param,
               const OperatorConfig& config);
    void configure(kern::Elementwise& kernel) const;
};

}  // namespace orb
