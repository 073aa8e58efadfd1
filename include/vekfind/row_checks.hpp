// What vekfind.hpp looks for in rows of floats before they go into a group.
#ifndef VEKFIND_ROW_CHECKS_HPP
#define VEKFIND_ROW_CHECKS_HPP

#include <cfloat>
#include <cstddef>
#include <cstdio>

namespace vekfind {

// False for NaN, infinity and what squares to it. Four sums: one would wait for each addition.
inline bool has_finite_norm(const float* row, size_t dim) {
    float sums[4] = {};
    for (size_t i = 0; i < dim; ++i)
        sums[i % 4] += row[i] * row[i];
    return sums[0] + sums[1] + sums[2] + sums[3] <= FLT_MAX;
}

// The number of the first such row, or the number of rows.
inline size_t first_not_finite(const void* floats, size_t nr_rows, size_t dim) {
    const auto* rows = static_cast<const float*>(floats);
    size_t row = 0;
    while (row < nr_rows && has_finite_norm(rows + row * dim, dim))
        ++row;
    return row;
}

// Whether the mean of the rows is more than 30 times as far from the origin as they are from it, so
// that distances lose digits. Judged by at most 256 rows, spread over all.
inline bool is_far_from_origin(const float* rows, size_t nr_rows, size_t dim) {
    const size_t step = nr_rows / 256 + 1;
    double distance = 0, spread = 0;  // squared, summed over the rows
    for (size_t i = 0; i < dim; ++i) {
        // Differences from the first row: they stay exact where the squares of elements would not.
        const auto first = static_cast<double>(rows[i]);
        double sum = 0, squares = 0, count = 0;
        for (size_t row = 0; row < nr_rows; row += step, ++count) {
            const double difference = static_cast<double>(rows[row * dim + i]) - first;
            sum += difference;
            squares += difference * difference;
        }
        const double mean = sum / count;
        distance += (first + mean) * (first + mean) * count;
        spread += squares - sum * mean;
    }
    return spread > 0 && distance > 900 * spread;
}

// Says so on the standard error, and returns whether it did. One row is not far from its own mean.
inline bool warn_if_far(const void* floats, size_t nr_rows, size_t dim) {
    if (nr_rows < 2 || !is_far_from_origin(static_cast<const float*>(floats), nr_rows, dim))
        return false;
    std::fputs(
        "vekfind: warning: features are far from the origin, so distances lose digits; "
        "`vekfind convert --center` subtracts their mean\n",
        stderr);
    return true;
}

}  // namespace vekfind

#endif
