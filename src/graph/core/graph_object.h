// The base of vars and operators: an object of one graph with a number that is unique in it.
#pragma once

#include <cstddef>

#include "graph/node/node_bound_object.h"
#include "graph/node/user_data.h"

namespace orb {

class ComputeGraph;

class GraphObject : public NodeBoundObject {
public:
    // A null graph stops the process.
    explicit GraphObject(ComputeGraph* graph);

    ComputeGraph& owner_graph() const { return *m_graph; }
    // Counted from 0 over the vars and operators of the graph, in the order of their making.
    size_t id() const { return m_id; }
    UserDataContainer& user_data() { return m_user_data; }

protected:
    std::shared_ptr<void> on_node_finalize() final;
    // Drops memory and kernels of the node.
    virtual void release_node_resources() = 0;

private:
    ComputeGraph* m_graph;
    size_t m_id;
    UserDataContainer m_user_data;
};

}  // namespace orb
