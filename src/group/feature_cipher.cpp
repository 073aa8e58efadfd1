#include "group/feature_cipher.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>
#include <vector>

#include "store/adopted_memory.h"

namespace vek {
namespace {

// Marsaglia, Xorshift RNGs, 2003.
uint32_t xorshift(uint32_t x) {
    x ^= x << 13;
    x ^= x >> 17;
    return x ^ (x << 5);
}

// A generator in the manner of RC4 whose key schedule is fed by xorshift. Indices are bytes and
// wrap.
class Keystream {
public:
    explicit Keystream(uint32_t x) {
        std::iota(m_state.begin(), m_state.end(), uint8_t{0});
        uint8_t j = 0;
        for (uint32_t i = 0; i < m_state.size(); ++i) {
            x = xorshift(x);
            j = static_cast<uint8_t>(m_state[i] + j + (x >> ((8 * i) & 24)));
            std::swap(m_state[i], m_state[j]);
        }
        const uint32_t skipped = (xorshift(x) & 4095) + 800;
        for (uint32_t i = 0; i < skipped; ++i)
            next();
    }

    uint8_t next() {
        ++m_i;
        const uint8_t a = m_state[m_i];
        m_j = static_cast<uint8_t>(a + m_j);
        std::swap(m_state[m_i], m_state[m_j]);
        return m_state[static_cast<uint8_t>(a + m_state[m_i])];
    }

private:
    std::array<uint8_t, 256> m_state;
    uint8_t m_i = 0;
    uint8_t m_j = 0;
};

}  // namespace

void feature_cipher(uint8_t* buffer, size_t rows, size_t row_bytes, size_t row_step) {
    Keystream keystream(VEK_FEATURE_SEED ^ static_cast<uint32_t>(row_bytes));
    std::vector<uint8_t> stream(row_bytes);
    std::generate(stream.begin(), stream.end(), [&] { return keystream.next(); });
    for (size_t row = 0; row < rows; ++row, buffer += row_step) {
        for (size_t i = 0; i < row_bytes; ++i)
            buffer[i] ^= stream[i];
    }
}

std::unique_ptr<uint8_t[]> decrypted_rows(const uint8_t* features, size_t rows, size_t row_bytes,
                                          size_t row_step) {
    const size_t bytes = size_product(rows, row_step);
    const size_t reach = row_bytes - row_step;  // of the transform of the last row beyond it
    std::unique_ptr<uint8_t[]> plain(new uint8_t[size_sum(bytes, reach)]);
    std::fill_n(std::copy_n(features, bytes, plain.get()), reach, uint8_t{0});
    feature_cipher(plain.get(), rows, row_bytes, row_step);
    return plain;
}

}  // namespace vek
