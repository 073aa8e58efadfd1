#include "graph/exec/exec_env.h"

#include "graph/node/comp_node_env.h"

namespace orb {

void OperatorExecEnv::run() const {
    for (const auto& [node, task] : m_tasks)
        node.env().dispatcher().dispatch(kern::Task(task));
}

}  // namespace orb
