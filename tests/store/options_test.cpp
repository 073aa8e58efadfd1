#include "store/options.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

TEST(Options, BlockSizeFollowsTheEnvironmentAtEveryCall) {
    const std::pair<const char*, uint32_t> cases[] = {
        {"16", 16},
        {"16abc", 16},
        {" 3", 3},
        {"abc", 8192},
        {"", 8192},
        {"0", 8192},
        {"-5", 8192},
        {"2147483647", 2147483647u},
        {"2147483648", 2147483647u},
        {"99999999999999999999999", 2147483647u},
    };
    setenv("VEK_IVFPQ_BLAS_THRESHOLD", "5", 1);
    for (const auto& [text, rows] : cases) {
        setenv("VEK_TENSOR_BLOCK_SIZE", text, 1);
        EXPECT_EQ(vek::tensor_block_size(), rows) << '"' << text << '"';
    }
    unsetenv("VEK_TENSOR_BLOCK_SIZE");
    EXPECT_EQ(vek::tensor_block_size(), 8192u);
}

}  // namespace
