// All operators that can stand in a graph file, with the ids that never change.
#pragma once

namespace orb {

class OperatorRegistry;

void add_all_operators(OperatorRegistry& registry);

}  // namespace orb
