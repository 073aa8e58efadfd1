// Elementwise arithmetic with broadcasting.
#pragma once

#include <vector>

#include "graph/core/compute_graph.h"
#include "graph/core/single_node_operator.h"
#include "kernels/elementwise.h"

namespace orb {

class ElementwiseOperator final : public SingleNodeOperator {
public:
    // The inputs are brought to their common dtype: any float beats any integer, Float32 beats
    // Float16, the wider integer beats the narrower; Float32 for integers in a mode that takes
    // none. Inputs that may be exchanged are sorted, so that a + b and b + a are one var.
    static GraphVar* make(const std::vector<GraphVar*>& inputs, kern::ElementwiseMode mode,
                          const OperatorConfig& config = {});
    static GraphVar* subtract(GraphVar* a, GraphVar* b);
    // Truncating for two integers, true division otherwise.
    static GraphVar* divide(GraphVar* a, GraphVar* b);

    const OperatorType* type_record() const override;
    kern::ElementwiseMode mode() const { return m_mode; }
    // Told by the product that this operator is an epilogue of, in every run: whether it has
    // computed the output already.
    void computed_by_product(bool yes) { m_is_computed = yes; }
    void plan_output_memory(bool dynamic) override;

protected:
    void register_output_inference() override;
    void run_on_node() override;
    void release_node_resources() override;

private:
    ElementwiseOperator(const std::vector<GraphVar*>& inputs, kern::ElementwiseMode mode,
                        const OperatorConfig& config);
    void add_sorted_inputs(const std::vector<GraphVar*>& inputs);

    kern::ElementwiseMode m_mode;
    bool m_is_computed = false;
    std::unique_ptr<kern::Elementwise> m_kernel;
};

}  // namespace orb
