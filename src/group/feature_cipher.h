// The byte-stream transform of "encrypted" rows. The stream depends on the row length alone, so all
// rows of a buffer are transformed alike, and a second time gives the bytes back. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vek {

// The same in every build that exchanges encrypted rows.
constexpr uint32_t VEK_FEATURE_SEED = 0xB5C90F37u;

// Transforms `rows` rows of `row_bytes` bytes in place; each begins `row_step` bytes after the one
// before. Rows that overlap are transformed one after the other. std::bad_alloc leaves the buffer
// as it was.
void feature_cipher(uint8_t* buffer, size_t rows, size_t row_bytes, size_t row_step);

// A decrypted copy of `rows` rows, `row_step` bytes apart, which were transformed as rows of
// `row_bytes` bytes, at least as many. Of `features` no more than `rows * row_step` bytes are read.
std::unique_ptr<uint8_t[]> decrypted_rows(const uint8_t* features, size_t rows, size_t row_bytes,
                                          size_t row_step);

}  // namespace vek
