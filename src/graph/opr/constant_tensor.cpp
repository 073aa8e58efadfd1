#include "graph/opr/constant_tensor.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

#include "graph/node/comp_node_env.h"
#include "kernels/check.h"
#include "kernels/handle.h"
#include "kernels/type_cvt.h"

namespace orb {
namespace {

// The scalars of one node. Lives in the node's environment and is guarded by its lock.
struct ScalarCache {
    static constexpr char TAG = 0;
    std::map<std::pair<const void*, std::string>, std::shared_ptr<DeviceTensorND>> tensors;
};

std::shared_ptr<DeviceTensorND> copy_to_node(const HostTensorND& value, CompNode node) {
    auto tensor = std::make_shared<DeviceTensorND>(node, value.dtype());
    tensor->copy_from(value);
    node.sync();
    return tensor;
}

std::shared_ptr<DeviceTensorND> shared_scalar(const HostTensorND& value, CompNode node) {
    const std::string bytes(reinterpret_cast<const char*>(value.raw_ptr()),
                            value.dtype().byte_size(1));
    const auto key = std::make_pair(static_cast<const void*>(value.dtype().record()), bytes);
    CompNodeEnv& env = node.env();
    const std::lock_guard<RecursiveSpinLock> lock(env.user_data_lock());
    auto& cache =
        env.user_data().get_or_make<ScalarCache>([] { return std::make_shared<ScalarCache>(); });
    auto& tensor = cache.tensors[key];
    // Filled before anybody else can see it.
    if (!tensor)
        tensor = copy_to_node(value, node);
    return tensor;
}

float as_float(const HostTensorND& value) {
    float result = 0;
    const auto converter = kern::inplace_handle()->create_operator<kern::TypeCvt>();
    converter->exec(value.as_raw(),
                    {&result, kern::TensorLayout(value.shape(), kern::DType::Float32())});

    return result;
}

std::string name_of(const HostTensorND& value) {
    if (value.shape().element_count() != 1)
        return "const" + value.shape().to_string();
    char text[32];
    std::snprintf(text, sizeof(text), "%.3g", static_cast<double>(as_float(value)));
    return text;
}

template <typename T>
HostTensorND scalar_tensor(T value, kern::DType dtype) {
    HostTensorND tensor(CompNode::default_cpu(), {1}, dtype);
    std::memcpy(tensor.raw_ptr(), &value, sizeof(value));
    return tensor;
}

}  // namespace

ConstantTensor::ConstantTensor(ComputeGraph& graph, std::shared_ptr<DeviceTensorND> tensor,
                               const HostTensorND& value, const OperatorConfig& config)
    : TensorSource(graph, std::move(tensor), config, name_of(value)), m_host_value(value) {}

GraphVar* ConstantTensor::make_scalar(ComputeGraph& graph, float value,
                                      const OperatorConfig& config) {
    return make(graph, scalar_tensor(value, kern::DType::Float32()), config);
}

GraphVar* ConstantTensor::make_scalar(ComputeGraph& graph, int32_t value,
                                      const OperatorConfig& config) {
    return make(graph, scalar_tensor(value, kern::DType::Int32()), config);
}

GraphVar* ConstantTensor::make(ComputeGraph& graph, const HostTensorND& value,
                               const OperatorConfig& config) {
    KERN_CHECK(config.comp_nodes.size() == 1);
    KERN_CHECK(value.layout().is_dense() || value.shape().has_zero_axis());
    const CompNode node = config.comp_nodes[0];
    const bool is_scalar = value.shape().ndim == 1 && value.shape(0) == 1;
    auto tensor = is_scalar ? shared_scalar(value, node) : copy_to_node(value, node);
    HostTensorND copy;
    copy.copy_from(value);
    return insert(
        std::unique_ptr<GraphOperator>(new ConstantTensor(graph, std::move(tensor), copy, config)));
}

const OperatorType* ConstantTensor::type_record() const {
    static constexpr OperatorType TYPE{"ConstantTensor"};
    return &TYPE;
}

void ConstantTensor::register_output_inference() {
    ShapeInferDescriptor shape_rule;
    shape_rule.source = InferSource::CONSTANT;
    shape_rule.infer = [this](kern::TensorShape& shape, const std::vector<InferInput>&) {
        shape = tensor().shape();
        return true;
    };
    owner_graph().inference_manager().add_shape_rule(output(0), std::move(shape_rule));

    ValueInferDescriptor value_rule;
    value_rule.source = InferSource::CONSTANT;
    value_rule.infer = [this](HostTensorND& value, const std::vector<InferInput>&) {
        value = m_host_value;
        return true;
    };
    owner_graph().inference_manager().add_value_rule(output(0), std::move(value_rule));
}

}  // namespace orb
