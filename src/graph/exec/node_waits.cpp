#include "graph/exec/node_waits.h"

#include <functional>

#include "graph/core/compute_graph.h"

namespace orb {
bool NodeWaits::PlaceLess::operator()(const Place& a, const Place& b) const {
    const auto less = std::less<const void*>();
    if (a.first != b.first)
        return less(a.first, b.first);
    return less(a.second.impl(), b.second.impl());
}

NodeWaits::NodeWaits(const std::vector<GraphOperator*>& order) {
    for (GraphOperator* op : order) {
        m_positions.emplace(op, m_positions.size());
        wait_for_inputs(op);
    }
}

NodeWaits::~NodeWaits() {
    for (GraphVar* var : m_vars_with_event)
        var->computed_event(nullptr);
}

void NodeWaits::wait_for_inputs(GraphOperator* op) {
    const InferenceManager& inference = op->owner_graph().inference_manager();
    for (CompNode node : op->comp_nodes()) {
        for (const auto& [var, flags] : op->properties().dependencies) {
            // A shape that is known before the run needs no wait.
            if ((flags & dependency::READS_VALUE) || !var->is_static_storage())
                wait_for(var, op, node);
        }
        for (const GraphVar* output : op->output()) {
            for (GraphVar* missing : inference.missing_inputs_of_shape(output))
                wait_for(missing, op, node);
        }
    }
}

void NodeWaits::wait_for(GraphVar* var, const GraphOperator* reader, CompNode node) {
    const GraphOperator* writer = var->owner_operator();
    const auto position = m_positions.find(writer);
    if (var->comp_node() == node || writer == reader || position == m_positions.end())
        return;
    m_vars_with_event.push_back(var);
    // Tasks of a node run in order, so one wait covers all that was done before.
    auto& [last_position, last_event] = m_last_waits[{node.impl(), var->comp_node().impl()}];
    if (last_event && last_position >= position->second) {
        var->computed_event(last_event);
        return;
    }
    auto& event = m_events[{writer, var->comp_node()}];
    if (!event)
        event = var->comp_node().create_event();
    m_waits[reader].push_back({event.get(), node});
    var->computed_event(event.get());
    last_position = position->second;
    last_event = event.get();
}

void NodeWaits::add_waits(const GraphOperator* op, StepList& steps) const {
    const auto found = m_waits.find(op);
    if (found == m_waits.end())
        return;
    for (const Wait& wait : found->second)
        steps.add_host_task([wait] { wait.event->wait_on_node(wait.node); });
}

void NodeWaits::add_records(const GraphOperator* op, StepList& steps) const {
    for (CompNode node : op->comp_nodes()) {
        const auto found = m_events.find({op, node});
        if (found != m_events.end())
            steps.add_record(*found->second);
    }
}

}  // namespace orb
