// Conversion of elements to another dtype.
#pragma once

#include "graph/core/compute_graph.h"
#include "graph/core/single_node_operator.h"
#include "kernels/type_cvt.h"

namespace orb {

class TypeConvert final : public SingleNodeOperator {
public:
    // The var itself when it has the dtype already.
    static GraphVar* make(GraphVar* var, kern::DType dtype, const OperatorConfig& config = {});

    const OperatorType* type_record() const override;

protected:
    void register_output_inference() override;
    void run_on_node() override;
    void release_node_resources() override;

private:
    TypeConvert(GraphVar* var, kern::DType dtype, const OperatorConfig& config);

    std::unique_ptr<kern::TypeCvt> m_kernel;
};

}  // namespace orb
