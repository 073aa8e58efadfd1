#include "store/options.h"

#include <cstdlib>
#include <limits>
#include <string_view>

namespace vek {
namespace {

struct Option {
    std::string_view key;
    int32_t value;
};

constexpr const char* TENSOR_BLOCK_SIZE = "VEK_TENSOR_BLOCK_SIZE";

constexpr Option OPTIONS[] = {
    {"VEK_IVFPQ_BLAS_THRESHOLD", 3},  // of the clustered kind of index, which is refused
    {TENSOR_BLOCK_SIZE, 8192},
};

// 0 for a key that is not in the table; the first of equal keys wins.
constexpr int32_t option(std::string_view key) {
    for (const Option& entry : OPTIONS) {
        if (entry.key == key)
            return entry.value;
    }
    return 0;
}

}  // namespace

uint32_t tensor_block_size() {
    constexpr int32_t DEFAULT_ROWS = option(TENSOR_BLOCK_SIZE);
    static_assert(DEFAULT_ROWS > 0);
    // Read at every call, so that groups made after a change of the variable follow it.
    const char* text = std::getenv(TENSOR_BLOCK_SIZE);
    const long rows = text ? std::strtol(text, nullptr, 10) : 0;
    if (rows <= 0)
        return DEFAULT_ROWS;
    // `long` has 32 bits on some targets and 64 on others; both saturate at the same number.
    constexpr long LARGEST = std::numeric_limits<int32_t>::max();
    return static_cast<uint32_t>(rows < LARGEST ? rows : LARGEST);
}

}  // namespace vek
