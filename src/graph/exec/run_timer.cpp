#include "graph/exec/run_timer.h"

#include <algorithm>

namespace orb {

RunTimer::RunTimer(const std::vector<CompNode>& nodes) {
    for (CompNode node : nodes)
        m_nodes.push_back({node.create_event(CompNodeEvent::TIMESTAMP),
                           node.create_event(CompNodeEvent::TIMESTAMP)});
}

void RunTimer::add_starts(StepList& steps) const {
    for (const Node& node : m_nodes)
        steps.add_record(*node.start);
}

void RunTimer::add_ends(StepList& steps) const {
    for (const Node& node : m_nodes)
        steps.add_record(*node.end);
}

double RunTimer::longest() const {
    double seconds = 0;
    for (const Node& node : m_nodes)
        seconds = std::max(seconds, node.start->elapsed_until(*node.end));
    return seconds;
}

}  // namespace orb
