#include "group/score_map.h"

#include <cmath>
#include <limits>

namespace vek {

// The width of each step decides the last bits of a score, so it is part of the contract.

ScoreMap::ScoreMap(const VEKComparisonAlgorithm& comparison)
    : m_scale(comparison.scale),
      m_bias(comparison.bias),
      m_slope(-comparison.scale + -comparison.scale) {}

float ScoreMap::raw_threshold(float similarity) const {
    if (similarity <= 0.0f)
        return -std::numeric_limits<float>::infinity();
    if (similarity >= 1.0f)
        return std::numeric_limits<float>::infinity();
    const float odds = 1.0f / similarity - 1.0f;
    const double exponent = std::log(static_cast<double>(odds));
    const double d2 = (exponent - static_cast<double>(m_bias)) / static_cast<double>(m_scale);
    return static_cast<float>(d2) * -0.5f;
}

float ScoreMap::similarity(float raw) const {
    const float exponent = m_bias + raw * m_slope;
    return static_cast<float>(1.0 / (std::exp(static_cast<double>(exponent)) + 1.0));
}

}  // namespace vek
