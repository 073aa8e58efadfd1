// How products are summed, for the loops of matrix products and convolutions: the stored types, and
// the type that one output is accumulated in. `add_product` rounds the product and the sum to the
// accumulator's precision.
#pragma once

#include <cstdint>
#include <type_traits>

#include "kernels/types/arithmetic.h"
#include "kernels/types/dtype.h"

namespace kern::naive {

template <typename Element, typename Accumulator>
struct FloatProduct {
    using In = Element;
    using Sum = Accumulator;
    using Out = Element;

    static Sum add_product(Sum sum, In a, In b) {
        return narrow<Sum>(widen(sum) + widen(a) * widen(b));
    }
    static Out finish(Sum sum) { return narrow<Out>(widen(sum)); }
};

// Signed bytes into integers that wrap around.
template <typename Output>
struct Int8Product {
    using In = int8_t;
    using Sum = std::make_unsigned_t<Output>;
    using Out = Output;

    static Sum add_product(Sum sum, In a, In b) {
        return static_cast<Sum>(sum + static_cast<Sum>(a * b));
    }
    static Out finish(Sum sum) { return static_cast<Out>(sum); }
};

struct Asymm8Product {
    using In = uint8_t;
    using Sum = uint32_t;
    using Out = int32_t;
    int32_t a_zero_point;
    int32_t b_zero_point;

    Asymm8Product(DType a, DType b)
        : a_zero_point(a.param<Quantized8AsymmParam>().zero_point),
          b_zero_point(b.param<Quantized8AsymmParam>().zero_point) {}

    Sum add_product(Sum sum, In a, In b) const {
        return sum + static_cast<uint32_t>((a - a_zero_point) * (b - b_zero_point));
    }
    static Out finish(Sum sum) { return static_cast<Out>(sum); }
};

}  // namespace kern::naive
