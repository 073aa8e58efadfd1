#include "vekfind/class_pairs.h"

#include <algorithm>
#include <numeric>
#include <random>

namespace calibration {
namespace {

// Numbers below `end`, rising: one from each of `count` parts that are equal but for rounding.
class RisingSample {
public:
    RisingSample(uint64_t end, uint64_t count, uint64_t seed)
        : m_step(end / count), m_rest(end % count), m_count(count), m_random(seed) {}

    uint64_t next() {
        const uint64_t begin = part_begin(m_next), end = part_begin(m_next + 1);
        ++m_next;
        return begin + m_random() % (end - begin);
    }

private:
    uint64_t part_begin(uint64_t part) const { return m_step * part + m_rest * part / m_count; }

    uint64_t m_step, m_rest, m_count, m_next = 0;
    std::mt19937_64 m_random;
};

// Eight sums, which fill vector registers and do not wait for each other.
double squared_distance(const float* a, const float* b, size_t dim) {
    constexpr size_t LANES = 8;
    double sums[LANES] = {};
    size_t i = 0;
    for (; i + LANES <= dim; i += LANES) {
        for (size_t lane = 0; lane < LANES; ++lane) {
            const double difference = double{a[i + lane]} - double{b[i + lane]};
            sums[lane] += difference * difference;
        }
    }
    for (; i < dim; ++i) {
        const double difference = double{a[i]} - double{b[i]};
        sums[0] += difference * difference;
    }
    return std::accumulate(sums, sums + LANES, 0.0);
}

}  // namespace

ClassPairs::ClassPairs(const std::vector<uint32_t>& class_of_row) : m_row(class_of_row.size()) {
    std::iota(m_row.begin(), m_row.end(), size_t{0});
    std::stable_sort(m_row.begin(), m_row.end(),
                     [&](size_t a, size_t b) { return class_of_row[a] < class_of_row[b]; });
    m_class_end.resize(m_row.size());
    size_t end = m_row.size();
    for (size_t place = m_row.size(); place-- > 0;) {
        const bool is_last = place + 1 == m_row.size() ||
                             class_of_row[m_row[place]] != class_of_row[m_row[place + 1]];
        end = is_last ? place + 1 : end;
        m_nr_classes += is_last;
        m_class_end[place] = end;
        m_nr_same += nr_partners(place, true);
        m_nr_other += nr_partners(place, false);
    }
}

std::vector<double> ClassPairs::distances(const float* rows, size_t dim, bool of_one_class,
                                          uint64_t count, uint64_t seed) const {
    std::vector<double> distances(static_cast<size_t>(count));
    if (count == 0)
        return distances;
    RisingSample sample(of_one_class ? m_nr_same : m_nr_other, count, seed);
    size_t place = 0;
    uint64_t first_pair = 0;  // of the row at `place`
    for (double& distance : distances) {
        const uint64_t pair = sample.next();
        for (uint64_t nr; pair - first_pair >= (nr = nr_partners(place, of_one_class)); ++place)
            first_pair += nr;
        const size_t first_partner = of_one_class ? place + 1 : m_class_end[place];
        const size_t partner = first_partner + static_cast<size_t>(pair - first_pair);
        distance = squared_distance(rows + m_row[place] * dim, rows + m_row[partner] * dim, dim);
    }
    return distances;
}

}  // namespace calibration
