// Axes in another order: a view of the input, nothing is computed. An input that gets its memory in
// the run is viewed there. Only where the output was made dynamic for another reason than its
// input, the elements are copied.
#pragma once

#include <vector>

#include "graph/opr/param_operator.h"

namespace orb {

struct DimensionShuffleParam {
    uint32_t source_ndim;
    std::vector<int32_t> pattern;
};
template <>
inline constexpr auto FIELDS<DimensionShuffleParam> =
    std::tuple{&DimensionShuffleParam::source_ndim, &DimensionShuffleParam::pattern};

class DimensionShuffle final : public ParamOperator<DimensionShuffle, DimensionShuffleParam> {
public:
    static const OperatorType TYPE;
    static constexpr int NEW_AXIS = -1;
    static bool accepts(const Param& param);

    // Each entry of the pattern is an input axis, or NEW_AXIS for an axis of length 1; an input
    // axis that is left out must have length 1. `source_ndim` 0 means the pattern's maximum plus 1.
    static GraphVar* make(GraphVar* var, const std::vector<int>& pattern, size_t source_ndim = 0,
                          const OperatorConfig& config = {});

    void plan_output_memory(bool dynamic) override;

protected:
    void register_output_inference() override;
    void on_inserted() override;
    void run_on_node() override;

private:
    friend ParamOperator;
    DimensionShuffle(const std::vector<GraphVar*>& inputs, const Param& param,
                     const OperatorConfig& config);
    kern::TensorLayout shuffled(const kern::TensorLayout& layout) const;
};

}  // namespace orb
