#include "graph/opr/cond_take.h"

#include "kernels/check.h"

namespace orb {
namespace {

const OperatorCopy COPY(&CondTake::TYPE, &CondTake::copy);

}  // namespace

const OperatorType CondTake::TYPE{"CondTake"};

CondTake::CondTake(const std::vector<GraphVar*>& inputs, const Param& param,
                   const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config, "cond_take") {
    add_outputs({inputs[0]->dtype(), kern::DType::Int32()});
    for (GraphVar* var : output())
        var->add_flag(var_flag::NO_SYSTEM_ALLOC);
    add_workspace();
}

GraphVar* CondTake::make(GraphVar* data, GraphVar* mask, const Param& param,
                         const OperatorConfig& config) {
    return create({data, mask}, param, config);
}

kern::TensorShape CondTake::output_shape(size_t, const std::vector<InferInput>&) {
    KERN_FAIL();  // no output is allocated before the run
}

size_t CondTake::query_workspace(const Layouts& inputs, const Layouts&) {
    return query_kernel().workspace_in_bytes(inputs[0], inputs[1]);
}

void CondTake::forward(const Tensors& inputs, const Tensors&, const kern::Workspace& workspace) {
    std::vector<DeviceTensorND> taken;
    taken.reserve(2);
    kernel().exec(inputs[0], inputs[1], workspace,
                  [&](kern::DType dtype, const kern::TensorShape& shape) {
                      return taken.emplace_back(comp_node(), shape, dtype).as_raw();
                  });
    for (size_t i = 0; i < taken.size(); ++i)
        owner_graph().memory_manager().adopt_tensor(output(i), taken[i]);
}

}  // namespace orb
