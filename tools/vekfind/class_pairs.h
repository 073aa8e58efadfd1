// Pairs of labelled rows: those of one class and those of two, all of them or a sample.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace calibration {

class ClassPairs {
public:
    explicit ClassPairs(const std::vector<uint32_t>& class_of_row);

    size_t nr_classes() const { return m_nr_classes; }
    uint64_t nr_same() const { return m_nr_same; }
    uint64_t nr_other() const { return m_nr_other; }

    // Squared distances, in double, of so many pairs of one class (or of two), which are different
    // pairs and evenly spread: one at random from each of `count` equal parts of their order
    // (stratified sampling; Cochran, "Sampling Techniques", 1977, chapter 5). As many as there are
    // gives all. The same seed gives the same pairs.
    std::vector<double> distances(const float* rows, size_t dim, bool of_one_class, uint64_t count,
                                  uint64_t seed) const;

private:
    // Rows stand in the order of their classes here. A pair belongs to its row that stands first;
    // the others of its class follow directly, then those of later classes.
    uint64_t nr_partners(size_t place, bool of_one_class) const {
        return of_one_class ? m_class_end[place] - place - 1 : m_row.size() - m_class_end[place];
    }

    std::vector<size_t> m_row;        // at each place
    std::vector<size_t> m_class_end;  // the place behind the last of its class
    size_t m_nr_classes = 0;
    uint64_t m_nr_same = 0, m_nr_other = 0;
};

}  // namespace calibration
