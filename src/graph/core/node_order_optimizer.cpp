#include "graph/core/node_order_optimizer.h"

#include "graph/core/operator.h"
#include "kernels/check.h"

namespace orb {

void NodeOrderOptimizer::prefer_stream(GraphVar* var, int32_t stream) {
    const GraphOperator* op = var->owner_operator();
    KERN_CHECK(op->inserted() && !op->input().empty());
    KERN_CHECK(op->properties().flags & OperatorProperties::SINGLE_NODE);
    KERN_CHECK(!var->comp_node().is_inline());
    m_choices.emplace_back(var, stream);
}

void NodeOrderOptimizer::move(GraphOperator* op, CompNode node) {
    for (GraphVar* output : op->output())
        output->comp_node(node);
    op->on_output_comp_node_set();
}

void NodeOrderOptimizer::apply() {
    for (const auto& [var, stream] : m_choices) {
        GraphOperator* op = var->owner_operator();
        m_moved.emplace_back(op, var->comp_node());
        move(op, var->comp_node().with_stream(stream));
    }
}

// Backwards, since an operator may have been moved twice.
void NodeOrderOptimizer::reset() {
    for (; !m_moved.empty(); m_moved.pop_back())
        move(m_moved.back().first, m_moved.back().second);
}

}  // namespace orb
