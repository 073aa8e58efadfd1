#include "graph/exec/dependency_order.h"

#include <unordered_map>
#include <utility>

#include "graph/core/operator.h"
#include "kernels/check.h"

namespace orb {

std::vector<GraphOperator*> sort_by_dependency(const std::vector<GraphVar*>& vars) {
    std::vector<GraphOperator*> order;
    std::unordered_map<GraphOperator*, bool> is_placed;    // of those that were visited
    std::vector<std::pair<GraphOperator*, size_t>> stack;  // with the next var to visit
    const auto visit = [&](GraphVar* var) {
        const auto [place, is_new] = is_placed.emplace(var->owner_operator(), false);
        if (is_new)
            stack.emplace_back(place->first, 0);
        else
            KERN_CHECK(place->second);  // extra dependencies could close a circle
    };
    for (GraphVar* var : vars) {
        visit(var);
        while (!stack.empty()) {
            GraphOperator* op = stack.back().first;
            const size_t next = stack.back().second++;
            const auto& needed = op->properties().dependencies;
            if (next < needed.size()) {
                visit(needed[next].first);
            } else {
                order.push_back(op);
                is_placed[op] = true;
                stack.pop_back();
            }
        }
    }
    return order;
}

}  // namespace orb
