#include "group/average_feature.h"

#include <algorithm>
#include <vector>

#include "group/feature_cipher.h"
#include "group/unaligned.h"
#include "store/adopted_memory.h"

namespace vek {
namespace {

// `rows` rows, behind each other by `row_bytes`, with the bytes that encryption reaches beyond the
// last.
std::vector<uint8_t> with_slack(const uint8_t* rows, size_t nr, size_t row_bytes,
                                size_t feature_bytes) {
    const size_t bytes = size_product(nr, row_bytes);
    std::vector<uint8_t> buffer(size_sum(bytes, feature_bytes - row_bytes));
    std::copy_n(rows, bytes, buffer.begin());
    return buffer;
}

}  // namespace

void average_feature(const uint8_t* features, size_t nr, size_t feature_dim, size_t feature_bytes,
                     uint8_t* average) {
    const size_t row_bytes = feature_dim * sizeof(float);
    std::vector<uint8_t> rows = with_slack(features, nr, row_bytes, feature_bytes);
    feature_cipher(rows.data(), nr, feature_bytes, row_bytes);

    std::vector<float> mean(feature_dim, 0.0f);
    for (size_t row = 0; row < nr; ++row) {
        for (size_t d = 0; d < feature_dim; ++d)
            mean[d] += read_unaligned<float>(rows.data(), row * feature_dim + d);
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
