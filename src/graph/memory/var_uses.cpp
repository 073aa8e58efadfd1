#include "graph/memory/var_uses.h"

#include "graph/core/operator.h"

namespace orb {
namespace {

bool works_on(const GraphOperator* op, CompNode node) {
    return op->comp_nodes() == std::vector<CompNode>{node};
}

}  // namespace

VarUses::VarUses(const std::vector<GraphOperator*>& order, const std::vector<GraphVar*>& kept_vars)
    : m_nr_steps(order.size()) {
    for (size_t step = 0; step < order.size(); ++step) {
        const GraphOperator* op = order[step];
        for (const GraphVar* var : op->output()) {
            Use& use = m_uses[var];
            use.writer = use.last_reader = step;
        }
        for (const auto& [var, flags] : op->properties().dependencies) {
            if (!(flags & dependency::READS_VALUE))
                continue;
            Use& use = m_uses.at(var);
            use.last_reader = step;
            ++use.nr_readers;
            use.read_elsewhere |= !works_on(op, var->comp_node());
        }
    }
    for (const GraphVar* var : kept_vars)
        m_uses.at(var).kept = true;
}

VarStepInfo VarUses::step_info(const GraphVar* var) const {
    const auto found = m_uses.find(var);
    if (found == m_uses.end())
        return {};
    return found->second;
}

size_t VarUses::end_of_life(const GraphVar* var) const {
    const Use& use = of(var);
    return (use.kept || use.read_elsewhere ? m_nr_steps : use.last_reader) + 1;
}

}  // namespace orb
