#include "graph/construct/dedup_table.h"

#include "graph/core/operator.h"

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

}  // namespace orb
