// What keeps the order between nodes: where an operator reads a var of another node, an event is
// recorded behind the var's operator and the reader's node waits for it. Made for one compiled
// order; the events are used again in every run.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "graph/exec/step_list.h"
#include "graph/node/comp_node_event.h"

namespace orb {

class GraphVar;

class NodeWaits final {
public:
    explicit NodeWaits(const std::vector<GraphOperator*>& order);
    ~NodeWaits();
    NodeWaits(const NodeWaits&) = delete;
    NodeWaits& operator=(const NodeWaits&) = delete;

    // Adds the waits that the operator's tasks need, ahead of them.
    void add_waits(const GraphOperator* op, StepList& steps) const;
    // Adds the records that other operators wait for, behind the operator's tasks.
    void add_records(const GraphOperator* op, StepList& steps) const;

private:
    struct Wait {
        CompNodeEvent* event;
        CompNode node;  // that waits
    };
    using Place = std::pair<const GraphOperator*, CompNode>;  // an operator's end on a node
    struct PlaceLess {
        bool operator()(const Place& a, const Place& b) const;
    };

    void wait_for_inputs(GraphOperator* op);
    void wait_for(GraphVar* var, const GraphOperator* reader, CompNode node);

    std::map<const GraphOperator*, size_t> m_positions;
    std::map<Place, std::unique_ptr<CompNodeEvent>, PlaceLess> m_events;
    std::map<const GraphOperator*, std::vector<Wait>> m_waits;
    std::vector<GraphVar*> m_vars_with_event;
    // The last wait of one node for another: the position in the order, and its event.
    std::map<std::pair<const void*, const void*>, std::pair<size_t, CompNodeEvent*>> m_last_waits;
};

}  // namespace orb
