#include "vekfind/operating_points.h"

#include <algorithm>
#include <cmath>

namespace calibration {
namespace {

float similarity(const LogisticLaw& law, double squared_distance) {
    return static_cast<float>(law.probability(squared_distance));
}

// The distances rise, so their similarities fall.
size_t count_at_least(float threshold, const LogisticLaw& law,
                      const std::vector<double>& distances) {
    const auto end = std::partition_point(distances.begin(), distances.end(), [&](double distance) {
        return similarity(law, distance) >= threshold;
    });
    return static_cast<size_t>(end - distances.begin());
}

OperatingPoint operating_point(const LogisticLaw& law, const Pairs& pairs, uint64_t one_of) {
    const std::vector<double>& other = pairs.other;
    const auto nr_accepted = static_cast<size_t>(other.size() / one_of);
    OperatingPoint point;
    point.one_of = one_of;
    if (nr_accepted == 0)
        return point;
    const double first_refused = other[nr_accepted];
    const auto end = std::lower_bound(other.begin(), other.end(), first_refused);
    const double last_accepted = end == other.begin() ? first_refused : *(end - 1);
    const float refused = similarity(law, first_refused);
    const float middle = similarity(law, (last_accepted + first_refused) / 2);
    point.threshold = middle > refused ? middle : std::nextafter(refused, 2.0f);
    point.nr_false = count_at_least(point.threshold, law, other);
    point.squared_distance = law.squared_distance(double{point.threshold});
    point.true_rate = static_cast<double>(count_at_least(point.threshold, law, pairs.same)) /
                      static_cast<double>(pairs.same.size());
    return point;
}

}  // namespace

std::vector<OperatingPoint> operating_points(const LogisticLaw& law, const Pairs& pairs) {
    std::vector<OperatingPoint> points;
    for (uint64_t one_of = 10; one_of <= 100'000; one_of *= 10)
        points.push_back(operating_point(law, pairs, one_of));
    return points;
}

}  // namespace calibration
