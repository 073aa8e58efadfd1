#include "serialization/tensor_records.h"

#include "graph/core/operator_copy.h"
#include "graph/opr/constant_tensor.h"
#include "graph/opr/shared_tensor_input.h"
#include "kernels/check.h"
#include "serialization/byte_forms.h"

namespace orb {
namespace {

// The tensor is shared by the copy, not written and read.
void copy_directly(OperatorRecord& record) {
    record.copy = [copy = OperatorCopy::find(record.type)](const GraphOperator& op,
                                                           const std::vector<GraphVar*>& inputs,
                                                           const OperatorConfig& config) {
        return copy(op, op.owner_graph(), inputs, config)->output(0);
    };
}

TensorRole read_role(OprLoadContext& context) {
    const auto byte = read_word<uint8_t>(context);
    if (byte > 1)
        context.fail(GraphFileFault::OPERATOR);
    return static_cast<TensorRole>(byte);
}

std::shared_ptr<DeviceTensorND> read_tensor(OprLoadContext& context, TensorRole role) {
    return role == TensorRole::INPUT ? context.load_tensor() : context.load_tensor_shared();
}

// Empty for an operator whose name was made up.
std::string own_name(const GraphOperator& op) {
    if (op.output(0)->has_name())
        return op.output(0)->name();
    return op.config().name.value_or("");
}

void dump_shared(OprDumpContext& context, const GraphOperator& op) {
    KERN_CHECK(op.type_record() == &SharedTensorInput::TYPE);
    const auto& source = static_cast<const SharedTensorInput&>(op);
    const DeviceTensorND& tensor = source.get_device_value();
    const std::string name = own_name(op);
    write_word(context, static_cast<uint8_t>(source.role()));
    if (source.role() == TensorRole::INPUT) {
        // What the last run's caller put there is not part of the graph.
        const DeviceTensorND shape_only(tensor.comp_node(), tensor.shape(), tensor.dtype());
        context.dump_tensor(name, shape_only, TensorMethod::INPUT);
    } else {
        context.dump_tensor(context.config().keep_parameter_names ? name : "", tensor,
                            TensorMethod::SHARED);
    }
}

void check_no_inputs(OprLoadContext& context, size_t nr_inputs) {
    if (nr_inputs != 0)
        context.fail(GraphFileFault::OPERATOR);
}

}  // namespace

OperatorRecord shared_tensor_record() {
    OperatorRecord record;
    record.type = &SharedTensorInput::TYPE;
    record.dump = dump_shared;
    record.load = [](OprLoadContext& context, const std::vector<GraphVar*>& inputs,
                     const OperatorConfig& config) {
        check_no_inputs(context, inputs.size());
        const TensorRole role = read_role(context);
        const auto tensor = read_tensor(context, role);
        OperatorConfig named = config;
        if (!context.tensor_name().empty())
            named.name = context.tensor_name();
        return SharedTensorInput::make(context.graph(), tensor, named, role)->owner_operator();
    };
    record.follow = [](OprLoadContext& context, size_t nr_inputs) -> size_t {
        check_no_inputs(context, nr_inputs);
        read_tensor(context, read_role(context));
        return 1;
    };
    copy_directly(record);
    return record;
}

OperatorRecord constant_record() {
    OperatorRecord record;
    record.type = &ConstantTensor::TYPE;
    record.dump = [](OprDumpContext& context, const GraphOperator& op) {
        KERN_CHECK(op.type_record() == &ConstantTensor::TYPE);
        const auto& source = static_cast<const ConstantTensor&>(op);
        context.dump_tensor("", source.get_device_value(), TensorMethod::CONSTANT);
    };
    record.load = [](OprLoadContext& context, const std::vector<GraphVar*>& inputs,
                     const OperatorConfig& config) {
        check_no_inputs(context, inputs.size());
        const auto value = context.load_constant();
        OperatorConfig on_node = config;
        if (on_node.comp_nodes.empty())
            on_node.comp_nodes = {value->comp_node()};
        return ConstantTensor::make(context.graph(), *value, on_node)->owner_operator();
    };
    record.follow = [](OprLoadContext& context, size_t nr_inputs) -> size_t {
        check_no_inputs(context, nr_inputs);
        context.load_constant();
        return 1;
    };
    copy_directly(record);
    return record;
}

}  // namespace orb
