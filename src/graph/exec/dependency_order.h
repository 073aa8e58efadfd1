// The order in which the operators of a function run.
#pragma once

#include <vector>

namespace orb {

class GraphOperator;
class GraphVar;

// All operators that the vars need, each once, after everything that it reads: depth first over the
// inputs in their order, and over what an operator depends on beside them.
std::vector<GraphOperator*> sort_by_dependency(const std::vector<GraphVar*>& vars);

}  // namespace orb
