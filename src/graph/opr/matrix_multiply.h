// The product of two matrices, each optionally transposed.
#pragma once

#include "graph/core/compute_graph.h"
#include "graph/core/single_node_operator.h"
#include "kernels/matrix_mul.h"

namespace orb {

class MatrixMultiply final : public SingleNodeOperator {
public:
    using Param = kern::MatrixMul::Param;

    static GraphVar* make(GraphVar* a, GraphVar* b, const Param& param,
                          const OperatorConfig& config = {});

    const OperatorType* type_record() const override;
    const Param& param() const { return m_param; }

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

    Param m_param;
    std::unique_ptr<kern::MatrixMul> m_kernel;
};

}  // namespace orb
