#include "graph/opr/tensor_source.h"

#include "kernels/check.h"

namespace orb {

TensorSource::TensorSource(ComputeGraph& graph, std::shared_ptr<DeviceTensorND> tensor,
                           const OperatorConfig& config, const std::string& default_name)
    : SingleNodeOperator(&graph, config, default_name), m_tensor(std::move(tensor)) {
    KERN_CHECK(m_tensor && m_tensor->comp_node().valid() && m_tensor->dtype().valid());
    KERN_CHECK(m_tensor->format()->is_default());
    for (CompNode node : config.comp_nodes)
        KERN_CHECK(node == m_tensor->comp_node());
    add_output()
        ->add_flag(var_flag::PERSISTENT | var_flag::FORCE_STATIC | var_flag::PERSISTENT_STATIC)
        .dtype(m_tensor->dtype());
    add_equality_key(reinterpret_cast<uintptr_t>(m_tensor.get()));
}

void TensorSource::assign_output_nodes() {
    output(0)->comp_node(m_tensor->comp_node());
    on_output_comp_node_set();
}

void TensorSource::plan_output_memory(bool dynamic) {
    if (!dynamic)
        owner_graph().memory_manager().lend(output(0), m_tensor.get());
}

void TensorSource::release_node_resources() {
    SingleNodeOperator::release_node_resources();
    m_tensor.reset();
}

}  // namespace orb
