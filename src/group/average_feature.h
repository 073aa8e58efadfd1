// The mean of encrypted float features, itself encrypted. No state: any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vek {

// `features` holds `nr` rows of `feature_dim` floats that were encrypted as rows of `feature_bytes`
// bytes, at least as many; `average` receives one such row. Sums run row by row in single
// precision; the mean of no rows is NaN.
void average_feature(const uint8_t* features, size_t nr, size_t feature_dim, size_t feature_bytes,
                     uint8_t* average);

}  // namespace vek
