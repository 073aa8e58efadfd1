#include "graph/opr/inplace_add.h"

#include "kernels/check.h"

namespace orb {
namespace {

const OperatorCopy COPY(&InplaceAdd::TYPE, &InplaceAdd::copy);

}  // namespace

const OperatorType InplaceAdd::TYPE{"InplaceAdd"};

InplaceAdd::InplaceAdd(const std::vector<GraphVar*>& inputs, const Param& param,
                       const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config, "inplace_add") {
    KERN_CHECK_TEXT(inputs[0]->dtype() == inputs[1]->dtype(),
                    std::string(inputs[0]->dtype().name()) + " " + inputs[1]->dtype().name());
    add_outputs({inputs[0]->dtype()});
}

void InplaceAdd::on_inserted() {
    input(0)->lead_storage_of(output(0));
}

GraphVar* InplaceAdd::make(GraphVar* destination, GraphVar* delta, const OperatorConfig& config) {
    return create({destination, delta}, {}, config);
}

void InplaceAdd::configure(kern::Elementwise& kernel) const {
    kernel.param().mode = kern::ElementwiseMode::ADD;
}

kern::TensorShape InplaceAdd::output_shape(size_t, const std::vector<InferInput>& inputs) {
    const kern::TensorShape& shape = *inputs[0].shape;
    KERN_CHECK(kern::Elementwise::deduce_output_shape({shape, *inputs[1].shape}).same_shape(shape));
    return shape;
}

void InplaceAdd::plan_output_memory(bool dynamic) {
    if (output(0)->is_static_storage() == dynamic)
        return;
    const MemPlan& destination = input(0)->mem_plan();
    const MemPlan& delta = input(1)->mem_plan();
    KERN_CHECK(destination.layout.is_dense() || destination.layout.has_zero_axis());
    // Another view of what is written would be read half changed.
    KERN_CHECK(delta.chunk != destination.chunk || (delta.offset_byte == destination.offset_byte &&
                                                    delta.layout.same_layout(destination.layout)));
    KERN_CHECK(owner_graph().memory_manager().forward_input_writable(input(0), output(0), true));
}

void InplaceAdd::forward(const Tensors& inputs, const Tensors& outputs, const kern::Workspace&) {
    kernel().exec(inputs, outputs[0]);
}

}  // namespace orb
