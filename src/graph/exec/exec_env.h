// The tasks of one run, made once and walked by every run. Tasks stand in the order of the
// operators, which keeps the order on each node and, since a node without a worker runs its tasks
// as they are given, between nodes as well.
#pragma once

#include <utility>
#include <vector>

#include "graph/node/comp_node.h"

namespace orb {

class OperatorExecEnv {
public:
    void add_node_task(CompNode node, kern::Task task) {
        m_tasks.emplace_back(node, std::move(task));
    }
    void clear() { m_tasks.clear(); }
    // Gives each task to its node's dispatcher.
    void run() const;

private:
    std::vector<std::pair<CompNode, kern::Task>> m_tasks;
};

}  // namespace orb
