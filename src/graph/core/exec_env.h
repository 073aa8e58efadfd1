// Takes the tasks that an operator appends for a run. The graph's function keeps them and walks
// them in every run, in the order in which they came.
#pragma once

#include <functional>

#include "graph/node/comp_node.h"

namespace orb {

// What a step does; called in every run.
using StepTask = std::function<void()>;

class OperatorExecEnv {
public:
    virtual ~OperatorExecEnv() = default;
    // Work of the node: its kernels run at once while the task runs.
    virtual void add_node_task(CompNode node, StepTask task) = 0;
    // Work of the thread that walks the tasks.
    virtual void add_host_task(StepTask task) = 0;
    // While it is paused, a walk gives no task to any node.
    virtual void pause() = 0;
    virtual void resume() = 0;
};

}  // namespace orb
