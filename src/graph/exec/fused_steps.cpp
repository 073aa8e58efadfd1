#include "graph/exec/fused_steps.h"

#include <optional>
#include <unordered_map>
#include <utility>

#include "graph/exec/single_node_operator.h"

namespace orb {
namespace {

class Readers {
public:
    Readers(const std::vector<GraphOperator*>& order, const std::vector<GraphVar*>& outputs) {
        for (GraphOperator* op : order) {
            for (const auto& dependency : op->properties().dependencies)
                m_readers[dependency.first].push_back(op);
        }
        for (const GraphVar* var : outputs)
            m_readers[var].push_back(nullptr);  // somebody outside
    }

    // The step that alone reads the var, with its operand on its own node.
    std::optional<EpilogueStep> step_after(const GraphVar* var) const {
        const auto found = m_readers.find(var);
        if (found == m_readers.end() || found->second.size() != 1)
            return std::nullopt;
        auto* op = dynamic_cast<SingleNodeOperator*>(found->second[0]);
        const auto step = op ? op->as_epilogue(var) : std::nullopt;
        const auto is_near = [op](const GraphVar* v) { return v->comp_node() == op->comp_node(); };
        if (!step || !is_near(var) || (step->operand && !is_near(step->operand)))
            return std::nullopt;
        return step;
    }

private:
    std::unordered_map<const GraphVar*, std::vector<GraphOperator*>> m_readers;
};

}  // namespace

void fuse_steps(const std::vector<GraphOperator*>& order, const std::vector<GraphVar*>& outputs) {
    const Readers readers(order, outputs);
    for (GraphOperator* op : order) {
        auto* leader = dynamic_cast<SingleNodeOperator*>(op);
        if (!leader)
            continue;
        leader->set_absorbed(false);
        std::vector<EpilogueStep> steps;
        while (auto step = readers.step_after(steps.empty() ? op->output(0) : steps.back().result))
            steps.push_back(*step);
        leader->absorb(std::move(steps));
    }
}

}  // namespace orb
