// The product of two matrices, each optionally transposed.
#pragma once

#include <vector>

#include "graph/opr/kernel_operator.h"
#include "kernels/operators/matrix_mul.h"

namespace orb {

template <>
inline constexpr auto FIELDS<kern::MatrixMul::Param> =
    std::tuple{&kern::MatrixMul::Param::transpose_a, &kern::MatrixMul::Param::transpose_b,
               &kern::MatrixMul::Param::data_type};

// The dtype of a product of two vars, which the configuration may name. Without it a quantised
// product has the product of the operands' scales.
kern::DType product_dtype(const GraphVar* a, const GraphVar* b, kern::MatrixMulDataType data_type,
                          const OperatorConfig& config);

class MatrixMultiply final : public KernelOperator<MatrixMultiply, kern::MatrixMul> {
public:
    static const OperatorType TYPE;
    static size_t nr_inputs(const Param&) { return 2; }

    static GraphVar* make(GraphVar* a, GraphVar* b, const Param& param,
                          const OperatorConfig& config = {});

    size_t absorb(std::vector<EpilogueStep> steps) override;
    // So many in the last run that computed anything.
    size_t nr_folded() const { return m_nr_folded; }

protected:
    void constrain_input_layouts(OperatorProperties& properties) const override;
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    size_t workspace_size(const std::vector<InferInput>& inputs) override;
    void forward(const Tensors& inputs, const Tensors& outputs,
                 const kern::Workspace& workspace) override;

private:
    friend Base;
    MatrixMultiply(const std::vector<GraphVar*>& inputs, const Param& param,
                   const OperatorConfig& config);
    std::vector<kern::MatrixMul::Epilogue> epilogues_to_fold() const;

    std::vector<EpilogueStep> m_steps;
    size_t m_nr_folded = 0;
};

}  // namespace orb
