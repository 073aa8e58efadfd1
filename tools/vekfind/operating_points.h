// What a threshold costs and gives: of pairs of two classes the share it accepts falsely, of pairs
// of one class the share it accepts rightly.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vekfind/logistic_fit.h"

namespace calibration {

// Fewer false accepts than these say little about a rate: with 30 the true rate is within 30 % of
// the measured one with 90 % confidence (Doddington, Przybocki, Martin and Reynolds, "The NIST
// speaker recognition evaluation", 2000).
constexpr uint64_t ENOUGH_FALSE_ACCEPTS = 30;

struct OperatingPoint {
    uint64_t one_of = 0;          // at most one of so many pairs of two classes is accepted
    uint64_t nr_false = 0;        // of them accepted; none: there is no threshold
    float threshold = 0;          // least similarity
    double squared_distance = 0;  // which has that similarity
    double true_rate = 0;         // share of the pairs of one class that are accepted

    double rate() const { return 1 / static_cast<double>(one_of); }
    bool has_threshold() const { return nr_false > 0; }
    bool is_sure() const { return nr_false >= ENOUGH_FALSE_ACCEPTS; }
    // Pairs of two classes that would make it sure.
    uint64_t needed_pairs() const { return ENOUGH_FALSE_ACCEPTS * one_of; }
};

// For rates of false accepts of 0.1, 0.01 and so on to 0.00001. What is accepted is decided by
// similarities as floats, as a search does; a threshold lies in the middle between the last pair
// accepted and the next where floats tell more than these two apart. There is none where not one
// false pair may be accepted or it would be equal to more than may.
std::vector<OperatingPoint> operating_points(const LogisticLaw& law, const Pairs& pairs);

// The curve of both rates (receiver operating characteristic), the rate of false accepts on a
// logarithmic axis, with the points that have a threshold, as text of an SVG picture.
std::string draw_roc_curve(const Pairs& pairs, const std::vector<OperatingPoint>& points);

}  // namespace calibration
