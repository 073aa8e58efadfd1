// Chains of operators of which the first can do the work of the others: a leader, which writes a
// result, and elementwise steps that it may absorb. Who leads and what can be absorbed is asked of
// the operators (`SingleNodeOperator::absorb` and `as_epilogue`). Called for each order that is
// compiled, by the graph's thread; no run of the graph is under way.
#pragma once

#include <vector>

namespace orb {

class GraphOperator;
class GraphVar;

// Offers each operator of the order the chain of steps that follows it, and forgets what an earlier
// order said. Nothing that `outputs` names is passed over.
void fuse_steps(const std::vector<GraphOperator*>& order, const std::vector<GraphVar*>& outputs);

}  // namespace orb
