#include "graph/exec/dependency_order.h"

#include <unordered_set>
#include <utility>

#include "graph/core/operator.h"

namespace orb {

std::vector<GraphOperator*> sort_by_dependency(const std::vector<GraphVar*>& vars) {
    std::vector<GraphOperator*> order;
    std::unordered_set<GraphOperator*> seen;
    std::vector<std::pair<GraphOperator*, size_t>> stack;  // with the next input to visit
    const auto visit = [&](GraphVar* var) {
        if (seen.insert(var->owner_operator()).second)
            stack.emplace_back(var->owner_operator(), 0);
    };
    for (GraphVar* var : vars) {
        visit(var);
        while (!stack.empty()) {
            GraphOperator* op = stack.back().first;
            const size_t next = stack.back().second++;
            if (next < op->input().size()) {
                visit(op->input(next));
            } else {
                order.push_back(op);
                stack.pop_back();
            }
        }
    }
    return order;
}

}  // namespace orb
