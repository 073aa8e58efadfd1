#include "graph/opr/constant_tensor.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

#include "graph/core/operator_copy.h"
#include "graph/node/comp_node_env.h"
#include "kernels/check.h"
#include "kernels/handle.h"
#include "kernels/operators/type_cvt.h"

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
    const auto with_entry = [&](const auto& use) {
        const std::lock_guard<RecursiveSpinLock> lock(env.user_data_lock());
        auto& cache = env.user_data().get_or_make<ScalarCache>(
            [] { return std::make_shared<ScalarCache>(); });
        return use(cache.tensors[key]);
    };
    if (auto known = with_entry([](const auto& entry) { return entry; }))
        return known;
    // Made and filled without the lock, since it may wait for the node. Of two threads that do so
    // at once the first to come back wins.
    auto made = copy_to_node(value, node);
    return with_entry([&made](auto& entry) {
        if (!entry)
            entry = std::move(made);
        return entry;
    });
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

GraphOperator* copy(const GraphOperator& source, ComputeGraph& graph, const std::vector<GraphVar*>&,
                    const OperatorConfig& config) {
    const auto& op = static_cast<const ConstantTensor&>(source);
    OperatorConfig on_node = config;
    if (on_node.comp_nodes.empty())
        on_node.comp_nodes = {op.comp_node()};
    return ConstantTensor::make(graph, op.host_value(), on_node)->owner_operator();
}

const OperatorCopy COPY(&ConstantTensor::TYPE, copy);

}  // namespace

const OperatorType ConstantTensor::TYPE{"ConstantTensor"};

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

void ConstantTensor::register_output_inference() {
    ShapeInferDescriptor shape_rule;
    shape_rule.source = source_kind();
    shape_rule.infer = [this](kern::TensorShape& shape, const std::vector<InferInput>&) {
        shape = tensor().shape();
        return true;
    };
    owner_graph().inference_manager().add_shape_rule(output(0), std::move(shape_rule));

    ValueInferDescriptor value_rule;
    value_rule.source = source_kind();
    value_rule.infer = [this](HostTensorND& value, const std::vector<InferInput>&) {
        value = m_host_value;
        return true;
    };
    owner_graph().inference_manager().add_value_rule(output(0), std::move(value_rule));
}

}  // namespace orb
