#include "graph/exec/step_list.h"

#include "graph/node/comp_node_env.h"

namespace orb {

void StepList::run() const {
    // By reference: the tasks stay here for the next run.
    for (const auto& node_task : m_tasks)
        node_task.first.env().dispatcher().dispatch([task = &node_task.second] { (*task)(); });
}

}  // namespace orb
