#include "graph/exec/single_node_operator.h"

#include <algorithm>
#include <utility>

#include "graph/core/compute_graph.h"
#include "graph/core/exec_env.h"
#include "kernels/check.h"

namespace orb {

void SingleNodeOperator::assign_output_nodes() {
    KERN_CHECK(config().comp_nodes.size() <= 1);
    const bool configured = !config().comp_nodes.empty();
    const bool reads_other_memory = properties().flags & OperatorProperties::CROSS_MEMORY_NODE;
    CompNode node = configured ? config().comp_nodes[0] : CompNode();
    for (GraphVar* var : input()) {
        if (!node.valid())
            node = var->comp_node();
        // Only a configured node may differ from the inputs', and only an operator that says so
        // reads another memory space.
        KERN_CHECK(configured ? reads_other_memory ||
                                    var->comp_node().memory_space() == node.memory_space()
                              : var->comp_node() == node);
    }
    KERN_CHECK(node.valid());
    for (GraphVar* var : output())
        var->comp_node(node);
    on_output_comp_node_set();
}

void SingleNodeOperator::on_output_comp_node_set() {
    const CompNode before = std::exchange(m_comp_node, output(0)->comp_node());
    for (GraphVar* var : output()) {
        if (var->has_flag(var_flag::VOLATILE_CONTENT))
            var->comp_node(m_comp_node);
        KERN_CHECK(var->comp_node() == m_comp_node);
    }
    if (before.valid() && before != m_comp_node)
        release_node_resources();
}

OperatorProperties SingleNodeOperator::make_properties() const {
    OperatorProperties properties = GraphOperator::make_properties();
    properties.flags |= OperatorProperties::SINGLE_NODE;
    return properties;
}

GraphVar* SingleNodeOperator::insert(std::unique_ptr<GraphOperator> op) {
    ComputeGraph& graph = op->owner_graph();
    return graph.current_output(*graph.insert_operator(std::move(op)));
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
    if (!m_is_absorbed && has_content_to_compute()) {
        copy_unreadable_inputs();
        run_on_node();
    }
    memory.release_unread(this);
}

std::optional<EpilogueStep> SingleNodeOperator::as_epilogue(const GraphVar*) {
    return std::nullopt;
}

size_t SingleNodeOperator::absorb(std::vector<EpilogueStep>) {
    return 0;
}

void SingleNodeOperator::copy_unreadable_inputs() {
    for (const auto& [index, is_readable] : properties().layout_checks) {
        const DeviceTensorND& value = input(index)->device_value();
        if (is_readable(value.layout())) {
            if (index < m_input_copies.size())
                m_input_copies[index] = DeviceTensorND();
            continue;
        }
        m_input_copies.resize(std::max(m_input_copies.size(), index + 1));
        DeviceTensorND& copy = m_input_copies[index];
        if (!copy.comp_node().valid())
            copy = DeviceTensorND(m_comp_node, value.dtype());
        copy.copy_from(value);
    }
}

const DeviceTensorND& SingleNodeOperator::input_value(size_t index) const {
    const bool is_copied = index < m_input_copies.size() && m_input_copies[index].shape_valid();
    return is_copied ? m_input_copies[index] : input(index)->device_value();
}

void SingleNodeOperator::hand_over(std::vector<std::shared_ptr<void>>& kept) {
    kept.push_back(std::make_shared<std::vector<DeviceTensorND>>(std::move(m_input_copies)));
    m_input_copies.clear();
}

void SingleNodeOperator::release_node_resources() {
    m_input_copies.clear();
}

}  // namespace orb
