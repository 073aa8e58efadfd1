// What each elementwise mode takes and means, written down a second time: floats in double
// precision, integers in 64 bits. Independent of the kernels' table on purpose.
#pragma once

#include <cmath>
#include <cstdint>
#include <set>

#include "kernels/check.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {

inline bool takes_float(uint32_t mode) {
    return mode != 32 && mode != 33 && mode != 43;
}

inline bool takes_int(uint32_t mode) {
    static const std::set<uint32_t> MODES = {0,  1,  11, 15, 16, 17, 18, 19, 20, 21, 23, 24,
                                             25, 26, 29, 30, 31, 32, 33, 34, 35, 36, 37, 43};
    return MODES.count(mode) != 0;
}

inline bool is_commutable(uint32_t mode) {
    static const std::set<uint32_t> MODES = {16, 18, 19, 21, 28, 31, 37, 38, 39, 43};
    return MODES.count(mode) != 0;
}

// The modes that mean the same for both kinds of number.
template <typename T>
T reference_number(uint32_t mode, T x, T y, T z, T w) {
    switch (mode) {
        case 0:
            return x > 0 ? x : 0;
        case 1:
            return x < 0 ? -x : x;
        case 11:
            return 0 - x;
        case 15:
            return x > 0 ? y : -y;
        case 16:
            return x + y;
        case 18:
            return x > y ? x : y;
        case 19:
            return x > y ? y : x;
        case 21:
            return x * y;
        case 23:
            return x * y - x * x * y;
        case 24:
            return x - y;
        case 25:
            return x > 0 ? y : 0;
        case 26:
            return y - x * x * y;
        case 29:
            return x < y;
        case 30:
            return x <= y;
        case 31:
            return x == y;
        case 34:
            return x <= y ? z : 0;
        case 35:
            return x * y + z;
        case 36:
            return x * y + z * w;
        case 37:
            return x + y > 0 ? x + y : 0;
        default:
            KERN_FAIL();
    }
}

inline double reference_float(uint32_t mode, double x, double y, double z, double w) {
    // Quotients of two floats must be rounded once before they are cut, as a float division does.
    const auto quotient = static_cast<double>(static_cast<float>(x) / static_cast<float>(y));
    switch (mode) {
        case 2:
            return std::acos(x);
        case 3:
            return std::asin(x);
        case 4:
            return std::ceil(x);
        case 5:
            return std::cos(x);
        case 6:
            return std::exp(x);
        case 7:
            return std::expm1(x);
        case 8:
            return std::floor(x);
        case 9:
            return std::log(x);
        case 10:
            return std::log1p(x);
        case 12:
            return std::exp(x) / (1 + std::exp(x));
        case 13:
            return std::sin(x);
        case 14:
            return std::tanh(x);
        case 17:
            return std::floor(quotient);
        case 20:
            return std::fmod(x, y);
        case 22:
            return std::pow(x, y);
        case 27:
            return x / y;
        case 28:
            return std::log(std::exp(x) + std::exp(y));
        case 38:
            return 1 / (1 + std::exp(-x - y));
        case 39:
            return std::tanh(x + y);
        case 40:
            return x * (27 + x * x) / (27 + 9 * x * x);
        case 41:
            return (-48 * x * x / (x * x + 3) + 27 + x * x) / (9 * (x * x + 3)) * y;
        case 42:
            return std::round(x);
        default:
            return reference_number(mode, x, y, z, w);
    }
}

// For values whose results fit in 32 bits before they are cut to `bits`, the width of the dtype.
inline int64_t reference_int(uint32_t mode, int bits, int64_t x, int64_t y, int64_t z, int64_t w) {
    const bool huge_shift = y < 0 || y >= 32;
    switch (mode) {
        case 17:
            return x / y;
        case 20:
            return x % y;
        case 32:
            return huge_shift ? 0 : x * (int64_t{1} << y);
        case 33:
            return huge_shift ? (x < 0 ? -1 : 0) : x >> y;
        case 43:
            return std::llround(std::floor(
                static_cast<double>(x * y) / static_cast<double>(int64_t{1} << (bits - 1)) + 0.5));
        default:
            return reference_number(mode, x, y, z, w);
    }
}

// The input's element that belongs to a row-major position of the output.
inline double broadcast_get(const Tensor& input, const TensorShape& output, size_t position) {
    const TensorLayout& layout = input.layout();
    size_t index = 0, scale = 1;
    for (size_t from_right = 1; from_right <= output.ndim; ++from_right) {
        const size_t coordinate = position % output[output.ndim - from_right];
        position /= output[output.ndim - from_right];
        if (from_right > layout.ndim)
            continue;
        const size_t length = layout[layout.ndim - from_right];
        index += length == 1 ? 0 : coordinate * scale;
        scale *= length;
    }
    return input.get(index);
}

}  // namespace kern_test
