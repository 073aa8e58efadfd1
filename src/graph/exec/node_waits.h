// What keeps the order between nodes: where an operator reads a var of another node, an event is
// recorded behind the var's operator and the reader's node waits for it. Made for one compiled
// order; the events are used again in every run.
#pragma once

#include <memory>
#include <unordered_map>
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

    // Adds the waits that the tasks of the operator at this position need, ahead of them.
    void add_waits(size_t position, StepList& steps) const;
    // Adds the records that other operators wait for, behind the operator's tasks.
    void add_records(size_t position, StepList& steps) const;

private:
    struct Wait {
        CompNodeEvent* event;
        CompNode node;  // that waits
    };
    struct Record {
        std::unique_ptr<CompNodeEvent> event;
        CompNode node;
    };
    struct Place {
        std::vector<Wait> waits;
        std::vector<Record> records;
    };
    struct LastWait {         // of one node for another
        size_t position = 0;  // of the operator that was waited for
        CompNodeEvent* event = nullptr;
    };
    using WaitsForNodes = std::unordered_map<CompNode, LastWait, CompNodeHash>;
    using Positions = std::unordered_map<const GraphOperator*, size_t>;

    void wait_for_inputs(GraphOperator* op, const Positions& positions);
    void wait_for(GraphVar* var, size_t reader, CompNode node, const Positions& positions);
    CompNodeEvent* event_behind(size_t position, CompNode node);

    std::vector<Place> m_places;  // by position in the order
    std::vector<GraphVar*> m_vars_with_event;
    std::unordered_map<CompNode, WaitsForNodes, CompNodeHash> m_last_waits;
};

}  // namespace orb
