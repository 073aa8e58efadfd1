// What is done to rows that were read as floats, before they go into a group or a search.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace features {

struct Preparation {
    bool allow_not_finite = false;
    std::vector<float> mean;  // subtracted from each row; empty for none
    bool normalize = false;   // brings each row to length 1
};

// In this order: the check for NaN, infinity and elements too large to square (BadFile, naming file
// and row), centering, normalising (BadFile for a row without a direction). `first_row` is the
// number in the file of the first of these rows.
void prepare(float* rows, size_t count, size_t dim, const Preparation& preparation,
             const std::string& path, uint64_t first_row);

// Whether the row is free of NaN, infinity and elements too large to square.
bool is_finite_row(const float* row, size_t dim);

// The mean that `vekfind convert --center` has kept: an .npy of `dim` floats.
std::vector<float> read_mean(const std::string& path, size_t dim);

// Mean and variance of the rows it is shown, in double precision, by the update of Chan, Golub and
// LeVeque ("Updating formulae and a pairwise algorithm for computing sample variances", 1979).
class Spread {
public:
    explicit Spread(size_t dim) : m_mean(dim) {}

    void add(const float* rows, size_t count);
    const std::vector<double>& mean() const { return m_mean; }
    // How many times as far the mean is from the origin as the rows are from the mean, both as root
    // of a sum of squares; 0 where the rows are all alike.
    double distance_ratio() const;
    // Distances lose digits: see "Precision" in README.md.
    bool is_far() const { return distance_ratio() > 30; }

private:
    void add_piece(const float* rows, size_t count);

    uint64_t m_count = 0;
    std::vector<double> m_mean;
    double m_sum_of_squares = 0;  // of the differences from the mean, over all elements
};

// One line on the standard error where the rows are far from their origin.
void warn_if_far(const Spread& spread, const std::string& path);

}  // namespace features
