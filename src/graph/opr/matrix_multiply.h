// The product of two matrices, each optionally transposed.
#pragma once

#include <vector>

#include "graph/core/compute_graph.h"
#include "graph/core/single_node_operator.h"
#include "kernels/matrix_mul.h"

namespace orb {

class ElementwiseOperator;

class MatrixMultiply final : public SingleNodeOperator {
public:
    using Param = kern::MatrixMul::Param;

    static GraphVar* make(GraphVar* a, GraphVar* b, const Param& param,
                          const OperatorConfig& config = {});

    const OperatorType* type_record() const override;
    const Param& param() const { return m_param; }

    // The epilogues: elementwise operators that come after this one in the compiled order, each the
    // only reader of the output before it, which is its first input. In every run the product
    // computes as many of them as it can while it writes its result, and tells them.
    void epilogues(std::vector<ElementwiseOperator*> operators);
    // So many in the last run that computed anything.
    size_t nr_folded() const { return m_nr_folded; }

protected:
    OperatorProperties make_properties() const override;
    void register_output_inference() override;
    void run_on_node() override;
    void release_node_resources() override;

private:
    MatrixMultiply(GraphVar* a, GraphVar* b, const Param& param, const OperatorConfig& config);
    kern::TensorShape output_shape(const kern::TensorShape& a, const kern::TensorShape& b) const;
    size_t get_workspace_size(const kern::TensorShape& a, const kern::TensorShape& b);
    kern::MatrixMul& kernel();
    std::vector<kern::MatrixMul::Epilogue> epilogues_to_fold() const;

    Param m_param;
    std::vector<ElementwiseOperator*> m_epilogues;
    size_t m_nr_folded = 0;
    std::unique_ptr<kern::MatrixMul> m_kernel;
};

}  // namespace orb
