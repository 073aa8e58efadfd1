#include "graph/exec/dependency_order.h"

#include <unordered_map>
#include <utility>

#include "graph/core/operator.h"
#include "kernels/check.h"

namespace orb {
namespace {

// Everything that the operator needs, one by one: its inputs, then what it was told to depend on
// beside them. Null at the end.
GraphVar* needed_var(const GraphOperator& op, size_t index) {
    if (index < op.input().size())
        return op.input(index);
    const auto& dependencies = op.properties().dependencies;
    index -= op.input().size();
    return index < dependencies.size() ? dependencies[index].first : nullptr;
}

}  // namespace

std::vector<GraphOperator*> sort_by_dependency(const std::vector<GraphVar*>& vars) {
    std::vector<GraphOperator*> order;
    std::unordered_map<GraphOperator*, bool> is_done;
    std::vector<std::pair<GraphOperator*, size_t>> stack;  // with the next var to visit
    const auto visit = [&](GraphVar* var) {
        const auto [entry, is_new] = is_done.emplace(var->owner_operator(), false);
        KERN_CHECK(is_new || entry->second);  // an operator that waits for itself
        if (is_new)
            stack.emplace_back(var->owner_operator(), 0);
    };
    for (GraphVar* var : vars) {
        visit(var);
        while (!stack.empty()) {
            GraphOperator* op = stack.back().first;
            if (GraphVar* next = needed_var(*op, stack.back().second++)) {
                visit(next);
            } else {
                order.push_back(op);
                is_done[op] = true;
                stack.pop_back();
            }
        }
    }
    return order;
}

}  // namespace orb
