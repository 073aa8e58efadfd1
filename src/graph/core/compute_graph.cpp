#include "graph/core/compute_graph.h"

namespace orb {

std::shared_ptr<ComputeGraph> ComputeGraph::shared_self() {
    if (m_clean_up_hook)
        m_clean_up_hook();
    return shared_from_this();
}

}  // namespace orb
