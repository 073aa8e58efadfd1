// The tasks of one run, made once and walked by every run. Tasks stand in the order of the
// operators, which keeps the order on each node and, since a node without a worker runs its tasks
// as they are given, between nodes as well.
#pragma once

#include <utility>
#include <vector>

#include "graph/core/exec_env.h"

namespace orb {

class StepList final : public OperatorExecEnv {
public:
    void add_node_task(CompNode node, StepTask task) override {
        m_tasks.emplace_back(node, std::move(task));
    }
    void add_host_task(StepTask task) override {
        m_tasks.emplace_back(CompNode::default_cpu(), std::move(task));
    }
    void pause() override { m_is_paused = true; }
    void resume() override { m_is_paused = false; }
    void clear() { m_tasks.clear(); }
    // Gives each task to its node's dispatcher.
    void run() const;

private:
    std::vector<std::pair<CompNode, StepTask>> m_tasks;
    bool m_is_paused = false;
};

}  // namespace orb
