// Memory of dynamic vars: taken just before their operator computes, given back by their last
// reader. Runs inside the operators' steps, on their nodes; the graph's function orders nodes that
// read each other's vars.
#pragma once

#include <functional>
#include <unordered_set>
#include <vector>

#include "graph/memory/var_uses.h"

namespace orb {

class DynamicMemory final {
public:
    // `uses` must outlive this object. `bind` puts a var's planned layout on its chunk's memory.
    DynamicMemory(const VarUses& uses, InferenceManager& inference,
                  std::function<void(GraphVar*)> bind)
        : m_uses(uses), m_inference(inference), m_bind(std::move(bind)) {}

    void set_order(const std::vector<GraphOperator*>& order);

    // Around an operator's computation; do nothing where no dynamic var is at either end.
    void allocate_outputs(GraphOperator* op);
    // Also of what the operator has read, if nobody else will.
    void release_unread(GraphOperator* op);

    // The output takes over the memory of an input that nobody else uses.
    bool take_over(GraphVar* input, GraphVar* output) const;

private:
    bool concerns(const GraphOperator* op) const {
        return !m_operators.empty() && m_operators.count(op) != 0;
    }
    void release(GraphVar* var) const;

    const VarUses& m_uses;
    InferenceManager& m_inference;
    std::function<void(GraphVar*)> m_bind;
    std::unordered_set<const GraphOperator*> m_operators;  // with a dynamic var at either end
};

}  // namespace orb
