// The order in which the operators of a function run.
#pragma once

#include <vector>

namespace orb {

class GraphOperator;
class GraphVar;

// All operators that the vars need, each once, after everything that it reads: depth first over the
// vars that it needs, in their order.
std::vector<GraphOperator*> sort_by_dependency(const std::vector<GraphVar*>& vars);

}  // namespace orb
