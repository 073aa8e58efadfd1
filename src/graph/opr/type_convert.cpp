#include "graph/opr/type_convert.h"

#include "kernels/handle.h"

namespace orb {
namespace {

const OperatorCopy COPY(&TypeConvert::TYPE, &TypeConvert::copy);

}  // namespace

const OperatorType TypeConvert::TYPE{"TypeConvert"};

TypeConvert::TypeConvert(const std::vector<GraphVar*>& inputs, const Param& param,
                         const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config,
                     std::string("as") + param.dtype.name()) {
    add_outputs({param.dtype});
    output(0)->add_flag(var_flag::ALLOW_EMPTY_SHAPE);
}

GraphVar* TypeConvert::make(GraphVar* var, kern::DType dtype, const OperatorConfig& config) {
    return var->dtype() == dtype ? var : create({var}, {dtype}, config);
}

kern::TensorShape TypeConvert::output_shape(size_t, const std::vector<InferInput>& inputs) {
    return *inputs[0].shape;
}

void TypeConvert::forward(const Tensors& inputs, const Tensors& outputs, const kern::Workspace&) {
    kernel().exec(inputs[0], outputs[0]);
}

void TypeConvert::compute_value(const Tensors& inputs, const kern::RawTensor& output) const {
    const auto op = kern::inplace_handle()->create_operator<kern::TypeCvt>();
    op->exec(inputs[0], output);
}

}  // namespace orb
