// Between a caller's similarities and the raw scores that are compared. With d2 the squared
// distance the raw score is -d2 / 2 and the similarity 1 / (1 + exp(scale * d2 + bias)). A value
// without state.
#pragma once

#include "vekfind/vekfind.h"

namespace vek {

class ScoreMap final {
public:
    explicit ScoreMap(const VEKComparisonAlgorithm& comparison);

    // The raw score below which a candidate is too dissimilar: minus infinity for a similarity of 0
    // or less, plus infinity for 1 or more, NaN for NaN.
    float raw_threshold(float similarity) const;
    float similarity(float raw) const;

private:
    float m_scale;
    float m_bias;
    float m_slope;
};

}  // namespace vek
