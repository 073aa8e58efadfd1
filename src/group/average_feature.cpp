#include "group/average_feature.h"

#include <algorithm>
#include <vector>

#include "group/feature_cipher.h"
#include "group/unaligned.h"

namespace vek {

void average_feature(const uint8_t* features, size_t nr, size_t feature_dim, size_t feature_bytes,
                     uint8_t* average) {
    const size_t row_bytes = feature_dim * sizeof(float);
    const auto rows = decrypted_rows(features, nr, feature_bytes, row_bytes);

    std::vector<float> mean(feature_dim, 0.0f);
    for (size_t row = 0; row < nr; ++row) {
        for (size_t d = 0; d < feature_dim; ++d)
            mean[d] += read_unaligned<float>(rows.get(), row * feature_dim + d);
    }
    for (float& value : mean)
        value /= static_cast<float>(nr);

    std::vector<uint8_t> result(feature_bytes);
    for (size_t d = 0; d < feature_dim; ++d)
        write_unaligned(result.data(), d, mean[d]);
    feature_cipher(result.data(), 1, feature_bytes, row_bytes);
    std::copy_n(result.begin(), row_bytes, average);
}

}  // namespace vek
