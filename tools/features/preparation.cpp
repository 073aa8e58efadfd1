#include "features/preparation.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <iostream>

#include "common/failure.h"
#include "common/npy.h"
#include "common/text.h"

namespace features {
namespace {

// Eight sums, which fit vector registers. Not finite for NaN, infinity, or what squares to it.
float sum_of_squares(const float* row, size_t dim) {
    constexpr size_t LANES = 8;
    float sums[LANES] = {};
    size_t i = 0;
    for (; i + LANES <= dim; i += LANES) {
        for (size_t lane = 0; lane < LANES; ++lane)
            sums[lane] += row[i + lane] * row[i + lane];
    }
    for (; i < dim; ++i)
        sums[0] += row[i] * row[i];
    float sum = 0;
    for (float part : sums)
        sum += part;
    return sum;
}

[[noreturn]] void fail_row(const std::string& path, uint64_t row, const char* text) {
    throw tools::BadFile(path + ": row " + std::to_string(row) + ": " + text);
}

// False for a row without a direction.
bool normalize(float* row, size_t dim) {
    double sum = 0;
    for (size_t i = 0; i < dim; ++i)
        sum += static_cast<double>(row[i]) * static_cast<double>(row[i]);
    if (sum == 0)
        return false;
    const double norm = std::sqrt(sum);
    for (size_t i = 0; i < dim; ++i)
        row[i] = static_cast<float>(static_cast<double>(row[i]) / norm);
    return true;
}

}  // namespace

void prepare(float* rows, size_t count, size_t dim, const Preparation& preparation,
             const std::string& path, uint64_t first_row) {
    for (size_t i = 0; i < count; ++i) {
        float* const row = rows + i * dim;
        if (!preparation.allow_not_finite && !is_finite_row(row, dim))
            fail_row(path, first_row + i,
                     "holds NaN, infinity or elements too large to square; --allow-nan lets it "
                     "pass");
        for (size_t j = 0; j < preparation.mean.size(); ++j)
            row[j] -= preparation.mean[j];
        if (preparation.normalize && !normalize(row, dim))
            fail_row(path, first_row + i, "has no direction, so it cannot be brought to length 1");
    }
}

bool is_finite_row(const float* row, size_t dim) {
    return sum_of_squares(row, dim) <= FLT_MAX;
}

std::vector<float> read_mean(const std::string& path, size_t dim) {
    const npy::Array array = npy::read(path);
    if (array.type != npy::ElementType::FLOAT32 || array.shape != std::vector<size_t>{dim})
        throw tools::BadFile(path + ": not a mean of " + std::to_string(dim) + " floats");
    std::vector<float> mean(dim);
    std::memcpy(mean.data(), array.bytes.data(), array.bytes.size());
    return mean;
}

void Spread::add(const float* rows, size_t count) {
    // Small pieces, whose own mean is computed in two passes over memory that is still in a cache.
    constexpr size_t PIECE = 256;
    for (size_t i = 0; i < count; i += PIECE)
        add_piece(rows + i * m_mean.size(), std::min(PIECE, count - i));
}

void Spread::add_piece(const float* rows, size_t count) {
    const size_t dim = m_mean.size();
    std::vector<double> mean(dim), squares(dim);
    for (size_t i = 0; i < count; ++i) {
        for (size_t j = 0; j < dim; ++j)
            mean[j] += static_cast<double>(rows[i * dim + j]);
    }
    for (double& element : mean)
        element /= static_cast<double>(count);
    for (size_t i = 0; i < count; ++i) {
        for (size_t j = 0; j < dim; ++j) {
            const double difference = static_cast<double>(rows[i * dim + j]) - mean[j];
            squares[j] += difference * difference;
        }
    }
    const auto before = static_cast<double>(m_count), added = static_cast<double>(count);
    const double all = before + added;
    for (size_t j = 0; j < dim; ++j) {
        const double shift = mean[j] - m_mean[j];
        m_sum_of_squares += squares[j] + shift * shift * before * added / all;
        m_mean[j] += shift * added / all;
    }
    m_count += count;
}

double Spread::distance_ratio() const {
    double square = 0;
    for (double element : m_mean)
        square += element * element;
    const double variance = m_count == 0 ? 0 : m_sum_of_squares / static_cast<double>(m_count);
    return variance > 0 ? std::sqrt(square / variance) : 0;
}

void warn_if_far(const Spread& spread, const std::string& path) {
    if (!spread.is_far())
        return;
    std::cerr << "vekfind: " << tools::printable(path) << ": warning: the mean of the features is "
              << tools::formatted("%.0f", spread.distance_ratio())
              << " times as far from the origin as the features are from it, so distances lose "
                 "digits; `vekfind convert --center` subtracts it\n";
}

}  // namespace features
