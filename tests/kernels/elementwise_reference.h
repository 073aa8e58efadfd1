// What each elementwise mode takes and means, written down a second time: floats in double
// precision, integers in 64 bits. Independent of the kernels' table on purpose.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>

#include "tests/kernels/kernel_test_util.h"

namespace kern_test {

constexpr uint32_t NR_MODES = 44;

// The inputs; `bits` is the width of an integer dtype.
template <typename T>
struct Inputs {
    T x, y, z, w;
    int bits = 0;
};
template <typename T>
using Formulas = std::map<uint32_t, T (*)(const Inputs<T>&)>;

// The modes that mean the same for both kinds of number.
template <typename T>
Formulas<T> number_formulas() {
    using In = const Inputs<T>&;
    return {{0, [](In v) { return v.x > 0 ? v.x : 0; }},
            {1, [](In v) { return v.x < 0 ? -v.x : v.x; }},
            {11, [](In v) { return 0 - v.x; }},
            {15, [](In v) { return v.x > 0 ? v.y : -v.y; }},
            {16, [](In v) { return v.x + v.y; }},
            {18, [](In v) { return v.x > v.y ? v.x : v.y; }},
            {19, [](In v) { return v.x > v.y ? v.y : v.x; }},
            {21, [](In v) { return v.x * v.y; }},
            {23, [](In v) { return v.x * v.y - v.x * v.x * v.y; }},
            {24, [](In v) { return v.x - v.y; }},
            {25, [](In v) { return v.x > 0 ? v.y : 0; }},
            {26, [](In v) { return v.y - v.x * v.x * v.y; }},
            {29, [](In v) { return T(v.x < v.y); }},
            {30, [](In v) { return T(v.x <= v.y); }},
            {31, [](In v) { return T(v.x == v.y); }},
            {34, [](In v) { return v.x <= v.y ? v.z : 0; }},
            {35, [](In v) { return v.x * v.y + v.z; }},
            {36, [](In v) { return v.x * v.y + v.z * v.w; }},
            {37, [](In v) { return v.x + v.y > 0 ? v.x + v.y : 0; }}};
}

// Quotients of two floats must be rounded once before they are cut, as a float division does.
inline double float_quotient(double x, double y) {
    return static_cast<double>(static_cast<float>(x) / static_cast<float>(y));
}

inline const Formulas<double>& float_formulas() {
    static const Formulas<double> all = [] {
        using In = const Inputs<double>&;
        Formulas<double> formulas = {
            {2, [](In v) { return std::acos(v.x); }},
            {3, [](In v) { return std::asin(v.x); }},
            {4, [](In v) { return std::ceil(v.x); }},
            {5, [](In v) { return std::cos(v.x); }},
            {6, [](In v) { return std::exp(v.x); }},
            {7, [](In v) { return std::expm1(v.x); }},
            {8, [](In v) { return std::floor(v.x); }},
            {9, [](In v) { return std::log(v.x); }},
            {10, [](In v) { return std::log1p(v.x); }},
            {12, [](In v) { return std::exp(v.x) / (1 + std::exp(v.x)); }},
            {13, [](In v) { return std::sin(v.x); }},
            {14, [](In v) { return std::tanh(v.x); }},
            {17, [](In v) { return std::floor(float_quotient(v.x, v.y)); }},
            {20, [](In v) { return std::fmod(v.x, v.y); }},
            {22, [](In v) { return std::pow(v.x, v.y); }},
            {27, [](In v) { return v.x / v.y; }},
            {28, [](In v) { return std::log(std::exp(v.x) + std::exp(v.y)); }},
            {38, [](In v) { return 1 / (1 + std::exp(-v.x - v.y)); }},
            {39, [](In v) { return std::tanh(v.x + v.y); }},
            {40, [](In v) { return v.x * (27 + v.x * v.x) / (27 + 9 * v.x * v.x); }},
            {41,
             [](In v) {
                 const double square = v.x * v.x;
                 return (-48 * square / (square + 3) + 27 + square) / (9 * (square + 3)) * v.y;
             }},
            {42, [](In v) { return std::round(v.x); }}};
        formulas.merge(number_formulas<double>());
        return formulas;
    }();
    return all;
}

inline bool is_huge_count(int64_t count) {
    return count < 0 || count >= 32;
}

// The upper half of the doubled product, rounded; the one that has no place takes the largest.
inline int64_t rounded_high_product(const Inputs<int64_t>& v) {
    const int64_t one = int64_t{1} << (v.bits - 1);
    return v.x == -one && v.y == -one ? one - 1 : (v.x * v.y + one / 2) >> (v.bits - 1);
}

// For values whose results fit in 32 bits before they are cut to the width of the dtype.
inline const Formulas<int64_t>& int_formulas() {
    static const Formulas<int64_t> all = [] {
        using In = const Inputs<int64_t>&;
        Formulas<int64_t> formulas = {
            {17, [](In v) { return v.x / v.y; }},
            {20, [](In v) { return v.x % v.y; }},
            {32, [](In v) { return is_huge_count(v.y) ? 0 : v.x * (int64_t{1} << v.y); }},
            {33, [](In v) { return v.x >> (is_huge_count(v.y) ? 63 : v.y); }},
            {37, [](In v) { return std::max<int64_t>(static_cast<int32_t>(v.x + v.y), 0); }},
            {43, rounded_high_product}};
        formulas.merge(number_formulas<int64_t>());
        return formulas;
    }();
    return all;
}

// The input's element that belongs to a row-major position of the output.
inline double broadcast_get(const Tensor& input, const TensorShape& output, size_t position) {
    return get_number({input.raw().raw_ptr, input.layout().broadcast_to(output)}, position);
}

}  // namespace kern_test
