// Lets operators of a compiled order run beside the others: those of chosen vars move to another
// stream of their node, which has a worker of its own, until the next compilation. Belongs to one
// graph.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "graph/node/comp_node.h"

namespace orb {

class GraphOperator;
class GraphVar;

class NodeOrderOptimizer final {
public:
    // From the next compilation on; of several choices the last one counts. The var's operator runs
    // on one node, one with a worker, and has inputs: the memory of sources belongs to their node.
    // An operator that is made after the compilation, from a moved var and without a node of its
    // own, is on the var's new node for good.
    void prefer_stream(GraphVar* var, int32_t stream);

    // For the graph: moves all chosen vars, with the other outputs of their operators, and puts
    // them back to where they were.
    void apply();
    void reset();

private:
    static void move(GraphOperator* op, CompNode node);

    std::vector<std::pair<GraphVar*, int32_t>> m_choices;
    std::vector<std::pair<GraphOperator*, CompNode>> m_moved;  // with the nodes that they had
};

}  // namespace orb
