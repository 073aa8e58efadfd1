// Finds the operator of a graph that is equal to a new one, so that equal expressions are one.
#pragma once

#include <cstdint>
#include <unordered_map>

namespace orb {

class GraphOperator;

class OperatorDedupTable {
public:
    // Equal by hash, then by class, then by `is_same`; null when there is none.
    GraphOperator* find(const GraphOperator& op) const;
    void insert(GraphOperator* op);

private:
    std::unordered_multimap<uint64_t, GraphOperator*> m_operators;
};

}  // namespace orb
