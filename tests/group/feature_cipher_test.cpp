#include "group/feature_cipher.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// Expected bytes were computed apart from the library.
TEST(FeatureCipher, GoldenBytes) {
    const Bytes stream = {0xa6, 0xef, 0xc9, 0xaa, 0x02, 0x93, 0xbc, 0x5a};
    Bytes rows(17);
    vek::feature_cipher(&rows[1], 2, 8, 8);  // at an odd address
    EXPECT_EQ(Bytes(rows.begin() + 1, rows.begin() + 9), stream);
    EXPECT_EQ(Bytes(rows.begin() + 9, rows.end()), stream);

    Bytes overlapping(12);
    std::iota(overlapping.begin(), overlapping.end(), uint8_t{0});
    vek::feature_cipher(overlapping.data(), 2, 6, 4);
    EXPECT_EQ(overlapping,
              (Bytes{0xe1, 0xf0, 0x1a, 0x26, 0x82, 0x27, 0x1e, 0x22, 0x6f, 0xda, 0x0a, 0x0b}));

    Bytes row(600);
    vek::feature_cipher(row.data(), 1, 600, 600);
    EXPECT_EQ(Bytes(row.end() - 4, row.end()), (Bytes{0x06, 0xcc, 0xf2, 0x99}));
}

}  // namespace
