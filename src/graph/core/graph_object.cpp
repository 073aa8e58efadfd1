#include "graph/core/graph_object.h"

#include "graph/core/compute_graph.h"
#include "kernels/check.h"

namespace orb {
namespace {

size_t take_id(ComputeGraph* graph) {
    KERN_CHECK(graph);
    return graph->next_object_id();
}

}  // namespace

GraphObject::GraphObject(ComputeGraph* graph) : m_graph(graph), m_id(take_id(graph)) {}

std::shared_ptr<void> GraphObject::on_node_finalize() {
    release_node_resources();
    m_user_data.clear();
    return nullptr;
}

}  // namespace orb
