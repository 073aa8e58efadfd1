// IEEE half precision as a storage type: arithmetic widens to 32 bits and rounds back.
#pragma once

#include <cstdint>

namespace kern {

struct Float16 {
    uint16_t bits = 0;

    Float16() = default;
    // Rounds to nearest; an overflow becomes infinity.
    explicit Float16(float value);
    explicit operator float() const;
};

}  // namespace kern
