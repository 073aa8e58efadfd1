// The rows of a matrix in order: "o0" the values, "o1" where they stood, as Int32.
#pragma once

#include "graph/opr/kernel_operator.h"
#include "kernels/operators/sorting.h"

namespace orb {

template <>
inline constexpr auto FIELDS<kern::Argsort::Param> = std::tuple{&kern::Argsort::Param::order};

class Argsort final : public KernelOperator<Argsort, kern::Argsort> {
public:
    static const OperatorType TYPE;
    static size_t nr_outputs(const Param&) { return 2; }

    // Float32 {rows, length}. Gives "o0"; its operator has the other.
    static GraphVar* make(GraphVar* source, const Param& param, const OperatorConfig& config = {});

protected:
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    size_t query_workspace(const Layouts& inputs, const Layouts& outputs) override;
    void forward(const Tensors& inputs, const Tensors& outputs,
                 const kern::Workspace& workspace) override;

private:
    friend Base;
    Argsort(const std::vector<GraphVar*>& inputs, const Param& param, const OperatorConfig& config);
};

}  // namespace orb
