// Chains of operators of which the first can do the work of the others. Called for each order that
// is compiled, by the graph's thread; no run of the graph is under way.
#pragma once

#include <vector>

namespace orb {

class GraphOperator;
class GraphVar;

// Tells each product in a compiled order which elementwise operators are its epilogues
// (see MatrixMultiply), and forgets what an earlier order said. Nothing that `outputs` names is
// passed over.
void fold_into_products(const std::vector<GraphOperator*>& order,
                        const std::vector<GraphVar*>& outputs);

}  // namespace orb
