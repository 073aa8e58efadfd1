// Finds the operator of a graph that is equal to a new one, so that equal expressions are one; and
// the var that stands in the place of another since a pass replaced it.
#pragma once

#include <cstdint>
#include <unordered_map>

namespace orb {

class GraphOperator;
class GraphVar;

class OperatorDedupTable {
public:
    // Equal by hash, then by class, then by `is_same`; null when there is none.
    GraphOperator* find(const GraphOperator& op) const;
    void insert(GraphOperator* op);

    // From now on whoever makes an operator whose only content is `var` gets `by` in its place.
    void replace(GraphVar* var, GraphVar* by);
    // What a make function gives for the operator: its first output, or the replacement of that.
    GraphVar* current_output(const GraphOperator& op) const;

private:
    std::unordered_map<const GraphVar*, GraphVar*> m_replacements;
    std::unordered_multimap<uint64_t, GraphOperator*> m_operators;
};

}  // namespace orb
