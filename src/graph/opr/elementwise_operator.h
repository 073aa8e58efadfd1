// Elementwise arithmetic with broadcasting.
#pragma once

#include <vector>

#include "graph/opr/kernel_operator.h"
#include "kernels/operators/elementwise.h"

namespace orb {

template <>
inline constexpr auto FIELDS<kern::Elementwise::Param> =
    std::tuple{&kern::Elementwise::Param::mode};

class ElementwiseOperator final : public KernelOperator<ElementwiseOperator, kern::Elementwise> {
public:
    static const OperatorType TYPE;
    static bool accepts(const Param& param);
    static size_t nr_inputs(const Param& param);

    // The inputs are brought to their common dtype: any float beats any integer, Float32 beats
    // Float16, the wider integer beats the narrower; Float32 for integers in a mode that takes
    // none. Inputs that may be exchanged are sorted, so that a + b and b + a are one var.
    static GraphVar* make(const std::vector<GraphVar*>& inputs, kern::ElementwiseMode mode,
                          const OperatorConfig& config = {});
    static GraphVar* subtract(GraphVar* a, GraphVar* b);
    // Truncating for two integers, true division otherwise.
    static GraphVar* divide(GraphVar* a, GraphVar* b);

    // One or two inputs, the first of them the given one and the other another var.
    std::optional<EpilogueStep> as_epilogue(const GraphVar* input) override;
    void plan_output_memory(bool dynamic) override;

protected:
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    bool can_compute_value() const override { return true; }
    void compute_value(const Tensors& inputs, const kern::RawTensor& output) const override;
    void forward(const Tensors& inputs, const Tensors& outputs, const kern::Workspace&) override;
    // The kernel reads every layout.
    void constrain_input_layouts(OperatorProperties&) const override {}

private:
    friend Base;
    ElementwiseOperator(const std::vector<GraphVar*>& inputs, const Param& param,
                        const OperatorConfig& config);
};

}  // namespace orb
