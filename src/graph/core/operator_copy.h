// From an operator's type to the function that makes an equal operator elsewhere, for passes and
// loops. An operator's source file adds its type with one `OperatorCopy` at namespace scope; no
// entry is added or removed once the program runs.
#pragma once

#include <vector>

#include "graph/core/operator.h"

namespace orb {

class OperatorCopy {
public:
    // The same parameters on other inputs, which belong to the graph. Gives what stands in the
    // graph then, which may be an equal operator.
    using Function = GraphOperator* (*)(const GraphOperator& source, ComputeGraph& graph,
                                        const std::vector<GraphVar*>& inputs,
                                        const OperatorConfig& config);

    // One entry per type.
    OperatorCopy(const OperatorType* type, Function function);
    // Null for a type that cannot be copied.
    static Function find(const OperatorType* type);
};

}  // namespace orb
