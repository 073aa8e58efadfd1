// Who writes and who reads each var of a compiled order, as positions in it. A pure function of the
// order.
#pragma once

#include <unordered_map>
#include <vector>

#include "graph/core/compute_graph.h"

namespace orb {

class VarUses final {
public:
    struct Use : VarStepInfo {
        bool kept = false;  // has its value after the run
        // Read by an operator of another node, whose place in this var's node's time is unknown.
        bool read_elsewhere = false;
    };

    VarUses() = default;
    VarUses(const std::vector<GraphOperator*>& order, const std::vector<GraphVar*>& kept_vars);

    // The var must be an output of the order.
    const Use& of(const GraphVar* var) const { return m_uses.at(var); }
    // All zero for a var that is not.
    VarStepInfo step_info(const GraphVar* var) const;
    // The first position at which the value is no longer needed.
    size_t end_of_life(const GraphVar* var) const;

private:
    size_t m_nr_steps = 0;
    std::unordered_map<const GraphVar*, Use> m_uses;
};

}  // namespace orb
