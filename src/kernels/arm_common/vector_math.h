// Transcendental functions of four floats at once. Stateless. A NaN gives a NaN; the largest errors
// are bounded by tests/kernels/vector_math_test.cpp.
#pragma once

#include "kernels/simd/f32x4_functions.h"
#include "kernels/simd/integers.h"

namespace kern::arm_common {

// e^x for arguments clamped to +-88.37626, so the result is finite and 0 at the low end. Reduced in
// two steps, as in W. J. Cody and W. Waite, "Software Manual for the Elementary Functions" (1980),
// to 2^n times a polynomial on [-ln(2) / 2, ln(2) / 2].
inline simd::F32x4 vector_exp(simd::F32x4 x) {
    using namespace simd;
    const F32x4 most = broadcast(88.37626f), least = broadcast(-88.37626f);
    F32x4 bounded = select(greater(x, most), most, x);
    bounded = select(greater(bounded, least), bounded, least);  // of a NaN too

    const I32x4 n = floor_to_int32(add_product(broadcast(0.5f), bounded, broadcast(1.44269502f)));
    const F32x4 n_float = to_float(n);
    // ln(2) in two parts, of which the first has few bits: its product with n is exact.
    F32x4 r = sub(bounded, mul(n_float, broadcast(0.693359375f)));
    r = add_product(r, n_float, broadcast(0.000212194442f));

    F32x4 p = broadcast(1.98756912e-4f);
    p = add_product(broadcast(1.39819994e-3f), p, r);
    p = add_product(broadcast(8.33345205e-3f), p, r);
    p = add_product(broadcast(4.16657962e-2f), p, r);
    p = add_product(broadcast(1.66666657e-1f), p, r);
    p = add_product(broadcast(0.5f), p, r);
    p = add(add_product(r, mul(p, r), r), broadcast(1.0f));

    const F32x4 power = bit_cast<F32x4>((n + 127) << 23);
    return select(less_equal(x, x), mul(p, power), x);
}

// 1 / (e^-x + 1). Two steps, because the quotient is the whole result: small ones would have a
// large relative error.
inline simd::F32x4 vector_sigmoid(simd::F32x4 x) {
    using namespace simd;
    return reciprocal<2>(add(vector_exp(negate(x)), broadcast(1.0f)));
}

// 1 - 2 / (1 + e^2x).
inline simd::F32x4 vector_tanh(simd::F32x4 x) {
    using namespace simd;
    const F32x4 one = broadcast(1.0f);
    const F32x4 denominator = add(one, vector_exp(add(x, x)));
    return sub(one, mul(broadcast(2.0f), reciprocal<1>(denominator)));
}

// x * (27 + x^2) / (27 + 9 * x^2).
inline simd::F32x4 vector_rational_tanh(simd::F32x4 x) {
    using namespace simd;
    const F32x4 square = mul(x, x);
    const F32x4 c27 = broadcast(27.0f);
    const F32x4 numerator = mul(x, add(c27, square));
    return mul(numerator, reciprocal<1>(add_product(c27, broadcast(9.0f), square)));
}

}  // namespace kern::arm_common
