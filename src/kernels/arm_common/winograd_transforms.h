// The transforms of F(6, 3) along one axis, for the points 0, 1, -1, 2, -2, 1/2, -1/2 and infinity,
// four tiles or filters at once. Each is a product with a matrix: with 8 x 3 G for filters, 8 x 8
// BT for inputs and 6 x 8 AT for outputs. Rows of opposite points share what they differ in the
// sign of.
#pragma once

#include <cstddef>

#include "kernels/simd/f32x4.h"

namespace kern::arm_common {

using Winograd = simd::F32x4;

// sum + factor * value
inline Winograd add_multiple(Winograd sum, float factor, Winograd value) {
    return simd::add_product(sum, value, simd::broadcast(factor));
}
inline Winograd multiple(float factor, Winograd value) {
    return simd::mul(value, simd::broadcast(factor));
}

// `in` and `out` are elements `in_step` and `out_step` apart; they may not be the same.
inline void transform_filter(const Winograd* in, size_t in_step, Winograd* out, size_t out_step) {
    const Winograd first = in[0], middle = in[in_step], last = in[2 * in_step];
    const auto put_pair = [&](size_t row, Winograd even, Winograd odd) {
        out[row * out_step] = simd::add(even, odd);
        out[(row + 1) * out_step] = simd::sub(even, odd);
    };
    out[0] = first;
    put_pair(1, multiple(-2.0f / 9, simd::add(first, last)), multiple(-2.0f / 9, middle));
    put_pair(3, add_multiple(multiple(1.0f / 90, first), 2.0f / 45, last),
             multiple(1.0f / 45, middle));
    put_pair(5, add_multiple(multiple(32.0f / 45, first), 8.0f / 45, last),
             multiple(16.0f / 45, middle));
    out[7 * out_step] = last;
}

inline void transform_input(const Winograd* in, size_t in_step, Winograd* out, size_t out_step) {
    const auto d = [&](size_t index) { return in[index * in_step]; };
    const auto put_pair = [&](size_t row, Winograd even, Winograd odd) {
        out[row * out_step] = simd::add(even, odd);
        out[(row + 1) * out_step] = simd::sub(even, odd);
    };
    out[0] = add_multiple(simd::sub(d(0), d(6)), 5.25f, simd::sub(d(4), d(2)));
    put_pair(1, add_multiple(simd::add(d(2), d(6)), -4.25f, d(4)),
             add_multiple(simd::add(d(1), d(5)), -4.25f, d(3)));
    put_pair(3, add_multiple(add_multiple(d(6), 0.25f, d(2)), -1.25f, d(4)),
             add_multiple(add_multiple(multiple(0.5f, d(1)), -2.5f, d(3)), 2.0f, d(5)));
    put_pair(5, add_multiple(add_multiple(d(6), 4.0f, d(2)), -5.0f, d(4)),
             add_multiple(add_multiple(multiple(2.0f, d(1)), -2.5f, d(3)), 0.5f, d(5)));
    out[7 * out_step] = add_multiple(simd::sub(d(7), d(1)), 5.25f, simd::sub(d(3), d(5)));
}

inline void transform_output(const Winograd* in, size_t in_step, Winograd* out, size_t out_step) {
    const auto m = [&](size_t index) { return in[index * in_step]; };
    const Winograd sum1 = simd::add(m(1), m(2)), difference1 = simd::sub(m(1), m(2));
    const Winograd sum2 = simd::add(m(3), m(4)), difference2 = simd::sub(m(3), m(4));
    const Winograd sum3 = simd::add(m(5), m(6)), difference3 = simd::sub(m(5), m(6));
    const auto put = [&](size_t row, Winograd at1, Winograd at2, Winograd at3, float power) {
        out[row * out_step] = add_multiple(add_multiple(at1, power, at2), 1 / power, at3);
    };
    put(0, simd::add(m(0), sum1), sum2, sum3, 1);
    put(1, difference1, difference2, difference3, 2);
    put(2, sum1, sum2, sum3, 4);
    put(3, difference1, difference2, difference3, 8);
    put(4, sum1, sum2, sum3, 16);
    put(5, simd::add(difference1, m(7)), difference2, difference3, 32);
}

}  // namespace kern::arm_common
