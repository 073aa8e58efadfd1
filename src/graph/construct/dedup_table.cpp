#include "graph/construct/dedup_table.h"

#include <algorithm>

#include "graph/core/operator.h"
#include "kernels/check.h"

namespace orb {

GraphOperator* OperatorDedupTable::find(const GraphOperator& op) const {
    const auto range = m_operators.equal_range(op.hash());
    for (auto it = range.first; it != range.second; ++it) {
        if (it->second->type_record() == op.type_record() && it->second->is_same(op))
            return it->second;
    }
    return nullptr;
}

void OperatorDedupTable::insert(GraphOperator* op) {
    m_operators.emplace(op->hash(), op);
}

void OperatorDedupTable::replace(GraphVar* var, GraphVar* by) {
    // No circle: the chain that begins at the replacement does not come back.
    for (const GraphVar* next = by; next;) {
        KERN_CHECK(next != var);
        const auto found = m_replacements.find(next);
        next = found == m_replacements.end() ? nullptr : found->second;
    }
    m_replacements[var] = by;
}

GraphVar* OperatorDedupTable::current_output(const GraphOperator& op) const {
    GraphVar* var = op.output(0);
    const auto has_content = [](const GraphVar* output) {
        return !output->has_flag(var_flag::VOLATILE_CONTENT);
    };
    if (std::count_if(op.output().begin(), op.output().end(), has_content) != 1)
        return var;
    for (auto found = m_replacements.find(var); found != m_replacements.end();
         found = m_replacements.find(var))
        var = found->second;
    return var;
}

}  // namespace orb
