// The elements at which a mask passes a test: "o0" the elements in one axis, "o1" their positions
// as Int32. How many they are is known only in the run, which makes both outputs' memory.
#pragma once

#include "graph/opr/kernel_operator.h"
#include "kernels/operators/cond_take.h"

namespace orb {

template <>
inline constexpr auto FIELDS<kern::CondTake::Param> = std::tuple{
    &kern::CondTake::Param::mode, &kern::CondTake::Param::value, &kern::CondTake::Param::eps};

class CondTake final : public KernelOperator<CondTake, kern::CondTake> {
public:
    static const OperatorType TYPE;
    static size_t nr_inputs(const Param&) { return 2; }
    static size_t nr_outputs(const Param&) { return 2; }

    // Data and mask of one shape, the mask of plain numbers. Gives "o0".
    static GraphVar* make(GraphVar* data, GraphVar* mask, const Param& param,
                          const OperatorConfig& config = {});

protected:
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    size_t query_workspace(const Layouts& inputs, const Layouts& outputs) override;
    void forward(const Tensors& inputs, const Tensors& outputs,
                 const kern::Workspace& workspace) override;

private:
    friend Base;
    CondTake(const std::vector<GraphVar*>& inputs, const Param& param,
             const OperatorConfig& config);
};

}  // namespace orb
