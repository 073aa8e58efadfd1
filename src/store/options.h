// The process-wide table of named integer options, constant. Any thread may call.
#pragma once

#include <cstdint>

namespace vek {

// Rows of one block of every store made from now on: the environment variable VEK_TENSOR_BLOCK_SIZE
// where it starts with a positive decimal number, otherwise the table's 8192. At most 2147483647 on
// every target.
uint32_t tensor_block_size();

}  // namespace vek
