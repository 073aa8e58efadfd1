#include "graph/exec/node_waits.h"

#include <algorithm>

#include "graph/core/compute_graph.h"

namespace orb {

NodeWaits::NodeWaits(const std::vector<GraphOperator*>& order) : m_places(order.size()) {
    Positions positions;
    for (GraphOperator* op : order) {
        positions.emplace(op, positions.size());
        wait_for_inputs(op, positions);
    }
}

NodeWaits::~NodeWaits() {
    for (GraphVar* var : m_vars_with_event)
        var->computed_event(nullptr);
}

void NodeWaits::wait_for_inputs(GraphOperator* op, const Positions& positions) {
    const InferenceManager& inference = op->owner_graph().inference_manager();
    const size_t reader = positions.at(op);
    for (CompNode node : op->comp_nodes()) {
        for (const auto& [var, flags] : op->properties().dependencies) {
            // A shape that is known before the run needs no wait.
            if ((flags & dependency::READS_VALUE) || !var->is_static_storage())
                wait_for(var, reader, node, positions);
        }
        for (const GraphVar* output : op->output()) {
            for (GraphVar* missing : inference.missing_inputs_of_shape(output))
                wait_for(missing, reader, node, positions);
        }
    }
}

void NodeWaits::wait_for(GraphVar* var, size_t reader, CompNode node, const Positions& positions) {
    const auto writer = positions.find(var->owner_operator());
    if (var->comp_node() == node || writer == positions.end() || writer->second == reader)
        return;
    m_vars_with_event.push_back(var);
    // Tasks of a node run in order, so one wait covers all that was done before.
    LastWait& last = m_last_waits[node][var->comp_node()];
    if (!last.event || last.position < writer->second) {
        last.position = writer->second;
        last.event = event_behind(writer->second, var->comp_node());
        m_places[reader].waits.push_back({last.event, node});
    }
    // One right behind the writer: a later one may stand behind what waits for some reader.
    var->computed_event(event_behind(writer->second, var->comp_node()));
}

CompNodeEvent* NodeWaits::event_behind(size_t position, CompNode node) {
    auto& records = m_places[position].records;
    const auto found = std::find_if(records.begin(), records.end(),
                                    [node](const Record& record) { return record.node == node; });
    if (found != records.end())
        return found->event.get();
    records.push_back({node.create_event(), node});
    return records.back().event.get();
}

void NodeWaits::add_waits(size_t position, StepList& steps) const {
    for (const Wait& wait : m_places[position].waits)
        steps.add_host_task([wait] { wait.event->wait_on_node(wait.node); });
}

void NodeWaits::add_records(size_t position, StepList& steps) const {
    for (const Record& record : m_places[position].records)
        steps.add_record(*record.event);
}

}  // namespace orb
