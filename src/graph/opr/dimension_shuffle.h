// Axes in another order: a view of the input, nothing is computed. Only where one of the two lives
// in planned memory and the other is allocated in the run, the elements are copied.
#pragma once

#include <vector>

#include "graph/core/compute_graph.h"
#include "graph/core/single_node_operator.h"

namespace orb {

class DimensionShuffle final : public SingleNodeOperator {
public:
    static constexpr int NEW_AXIS = -1;

    // Each entry of the pattern is an input axis, or NEW_AXIS for an axis of length 1; an input
    // axis that is left out must have length 1. `source_ndim` 0 means the pattern's maximum plus 1.
    static GraphVar* make(GraphVar* var, const std::vector<int>& pattern, size_t source_ndim = 0,
                          const OperatorConfig& config = {});

    const OperatorType* type_record() const override;
    size_t source_ndim() const { return m_source_ndim; }
    void plan_output_memory(bool dynamic) override;

protected:
    void register_output_inference() override;
    void run_on_node() override;

private:
    DimensionShuffle(GraphVar* var, const std::vector<int>& pattern, size_t source_ndim,
                     const OperatorConfig& config);
    kern::TensorLayout shuffled(const kern::TensorLayout& layout) const;

    std::vector<int> m_pattern;
    size_t m_source_ndim;
};

}  // namespace orb
