// Conversions by tables, after J. van der Zijp, "Fast Half Float Conversions" (2008), with rounding
// to nearest even where the paper truncates.
#include "kernels/types/float16.h"

#include <array>
#include <cstddef>
#include <cstring>

namespace kern {
namespace {

constexpr uint32_t MANTISSA_BITS = 23;
constexpr uint32_t MANTISSA_MASK = (1u << MANTISSA_BITS) - 1;
constexpr uint32_t HALF_MANTISSA_MASK = 0x3ff;

// Half to single: bits = mantissa[offset[h >> 10] + (h & 0x3ff)] + exponent[h >> 10].
struct WideningTables {
    std::array<uint32_t, 2048> mantissa{};  // subnormal halves, normalised; then the normal ones
    std::array<uint32_t, 64> exponent{};
    std::array<uint16_t, 64> offset{};
};

constexpr uint32_t normalised_subnormal(uint32_t half_mantissa) {
    uint32_t mantissa = half_mantissa << 13;
    uint32_t exponent = 0x38800000;  // 2^-14
    while ((mantissa & (1u << MANTISSA_BITS)) == 0) {
        exponent -= 1u << MANTISSA_BITS;
        mantissa <<= 1;
    }
    return exponent | (mantissa & MANTISSA_MASK);
}

constexpr WideningTables make_widening_tables() {
    WideningTables tables;
    for (uint32_t i = 1; i < 1024; ++i)
        tables.mantissa[i] = normalised_subnormal(i);
    for (uint32_t i = 1024; i < 2048; ++i)
        tables.mantissa[i] = 0x38000000 + ((i - 1024) << 13);
    for (uint32_t i = 0; i < 32; ++i) {
        tables.exponent[i] = i < 31 ? i << MANTISSA_BITS : 0x47800000;
        tables.exponent[i + 32] = 0x80000000 + tables.exponent[i];
        tables.offset[i] = tables.offset[i + 32] = i == 0 ? 0 : 1024;
    }
    return tables;
}

// Single to half by the top nine bits: base + (significand >> shift), where the significand has its
// leading one written out.
struct NarrowingTables {
    std::array<uint16_t, 512> base{};
    std::array<uint8_t, 512> shift{};
};

constexpr NarrowingTables make_narrowing_tables() {
    NarrowingTables tables;
    for (int i = 0; i < 256; ++i) {
        const int exponent = i - 127;
        int base = 0;
        int shift = 31;  // shifts everything out: too small for half the least subnormal
        if (exponent == 128) {
            base = 0x7c00 - 0x400;
            shift = 13;
        } else if (exponent > 15) {
            base = 0x7c00;
        } else if (exponent >= -14) {
            base = (exponent + 14) << 10;
            shift = 13;
        } else if (exponent >= -25) {
            shift = -exponent - 1;
        }
        const auto index = static_cast<size_t>(i);
        tables.base[index] = static_cast<uint16_t>(base);
        tables.base[index + 256] = static_cast<uint16_t>(base | 0x8000);
        tables.shift[index] = tables.shift[index + 256] = static_cast<uint8_t>(shift);
    }
    return tables;
}

constexpr WideningTables WIDENING = make_widening_tables();
constexpr NarrowingTables NARROWING = make_narrowing_tables();

}  // namespace

Float16::Float16(float value) {
    uint32_t wide = 0;
    std::memcpy(&wide, &value, sizeof(wide));
    const uint32_t index = wide >> MANTISSA_BITS;
    if ((wide & 0x7fffffff) > 0x7f800000) {  // a NaN stays one, whichever of its bits are lost
        bits = static_cast<uint16_t>((wide >> 16 & 0x8000) | 0x7e00 |
                                     (wide >> 13 & HALF_MANTISSA_MASK));
        return;
    }
    const uint32_t significand = (wide & MANTISSA_MASK) | (1u << MANTISSA_BITS);
    const uint32_t shift = NARROWING.shift[index];
    const uint32_t kept = significand >> shift;
    const uint32_t rest = significand - (kept << shift);
    const uint32_t half = 1u << (shift - 1);
    const uint32_t round = rest > half || (rest == half && (kept & 1)) ? 1 : 0;
    // A carry out of the mantissa raises the exponent, up to infinity.
    bits = static_cast<uint16_t>(NARROWING.base[index] + kept + round);
}

Float16::operator float() const {
    const size_t index = bits >> 10;
    const uint32_t wide = WIDENING.mantissa[WIDENING.offset[index] + (bits & HALF_MANTISSA_MASK)] +
                          WIDENING.exponent[index];
    float value = 0;
    std::memcpy(&value, &wide, sizeof(value));
    return value;
}

}  // namespace kern
