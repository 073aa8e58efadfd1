// How long a run takes on each node: an event with a timestamp in front of the node's tasks and one
// behind them. Used by the thread that runs the function.
#pragma once

#include <memory>
#include <vector>

#include "graph/exec/step_list.h"
#include "graph/node/comp_node_event.h"

namespace orb {

class RunTimer final {
public:
    explicit RunTimer(const std::vector<CompNode>& nodes);

    void add_starts(StepList& steps) const;
    void add_ends(StepList& steps) const;
    // Seconds on the node that took longest. The run must have ended.
    double longest() const;

private:
    struct Node {
        std::unique_ptr<CompNodeEvent> start, end;
    };
    std::vector<Node> m_nodes;
};

}  // namespace orb
