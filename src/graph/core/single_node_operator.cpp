#include "graph/core/single_node_operator.h"

#include <algorithm>

#include "graph/core/compute_graph.h"
#include "graph/exec/exec_env.h"
#include "kernels/check.h"

namespace orb {

void SingleNodeOperator::assign_output_nodes() {
    KERN_CHECK(config().comp_nodes.size() <= 1);
    const bool configured = !config().comp_nodes.empty();
    CompNode node = configured ? config().comp_nodes[0] : CompNode();
    for (GraphVar* var : input()) {
        if (!node.valid())
            node = var->comp_node();
        // Only a configured node may differ from the inputs' within one memory space.
        KERN_CHECK(configured ? var->comp_node().memory_space() == node.memory_space()
                              : var->comp_node() == node);
    }
    KERN_CHECK(node.valid());
    m_comp_node = node;
    for (GraphVar* var : output())
        var->comp_node(node);
}

OperatorProperties SingleNodeOperator::make_properties() const {
    OperatorProperties properties = GraphOperator::make_properties();
    properties.flags |= OperatorProperties::SINGLE_NODE;
    return properties;
}

GraphVar* SingleNodeOperator::insert(std::unique_ptr<GraphOperator> op) {
    ComputeGraph& graph = op->owner_graph();
    return graph.insert_operator(std::move(op))->output(0);
}

void SingleNodeOperator::add_run_task(OperatorExecEnv& env) {
    env.add_node_task(m_comp_node, [this] { run_step(); });
}

// Operators without any content, such as callbacks, always run; so do those whose output has a
// shape only once it has run.
bool SingleNodeOperator::has_content_to_compute() const {
    bool has_content = false;
    for (const GraphVar* var : output()) {
        if (var->has_flag(var_flag::VOLATILE_CONTENT))
            continue;
        if (var->has_flag(var_flag::NO_SYSTEM_ALLOC) || !var->shape().has_zero_axis())
            return true;
        has_content = true;
    }
    return !has_content;
}

void SingleNodeOperator::run_step() {
    VarMemoryManager& memory = owner_graph().memory_manager();
    memory.allocate_dynamic_memory(this);
    if (has_content_to_compute()) {
        copy_unreadable_inputs();
        run_on_node();
    }
    memory.release_unread(this);
}

void SingleNodeOperator::copy_unreadable_inputs() {
    for (const auto& [var, is_readable] : properties().layout_checks) {
        const auto found =
            std::find_if(m_input_copies.begin(), m_input_copies.end(),
                         [var_ = var](const auto& copy) { return copy.first == var_; });
        if (is_readable(var->device_value().layout())) {
            if (found != m_input_copies.end())
                m_input_copies.erase(found);
            continue;
        }
        auto& copy = found != m_input_copies.end()
                         ? found->second
                         : m_input_copies.emplace_back(var, DeviceTensorND()).second;
        copy.copy_from(var->device_value());
    }
}

const DeviceTensorND& SingleNodeOperator::input_value(size_t index) const {
    for (const auto& copy : m_input_copies) {
        if (copy.first == input(index))
            return copy.second;
    }
    return input(index)->device_value();
}

void SingleNodeOperator::release_node_resources() {
    m_input_copies.clear();
}

}  // namespace orb
