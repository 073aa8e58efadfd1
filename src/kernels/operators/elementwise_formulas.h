// The formulas of the elementwise modes as functions of one element each, and the selection of a
// kernel by mode and dtype. For the kernels' own files only: it instantiates much.
#pragma once

#include <cmath>
#include <limits>
#include <type_traits>

#include "kernels/check.h"
#include "kernels/operators/elementwise.h"
#include "kernels/types/arithmetic.h"
#include "kernels/types/dtype_switch.h"

namespace kern::formula {

using std::acos;
using std::asin;
using std::ceil;
using std::cos;
using std::exp;
using std::expm1;
using std::fabs;
using std::floor;
using std::fmod;
using std::log;
using std::log1p;
using std::pow;
using std::round;
using std::sin;
using std::tanh;

inline float sigmoid(float x) {
    return 1 / (exp(-x) + 1);
}

inline float log_sum_exp(float x, float y) {
    const float low = x < y ? x : y;
    const float high = x < y ? y : x;
    return high + log1p(static_cast<float>(exp(static_cast<double>(low - high))));
}

inline float rational_tanh_grad(float x, float y) {
    const float t = x * x;
    const float u = t + 3;
    return (t * -48 / u + 27 + t) / (u * 9) * y;
}

// Truncates. A divisor of -1 is a negation, which wraps where the division would trap.
inline WrappingInt integer_quotient(WrappingInt x, WrappingInt y) {
    KERN_CHECK(y.value() != 0);
    return y == -1 ? -x : WrappingInt(x.value() / y.value());
}

inline WrappingInt integer_remainder(WrappingInt x, WrappingInt y) {
    KERN_CHECK(y.value() != 0);
    return y == -1 ? WrappingInt(0) : WrappingInt(x.value() % y.value());
}

// A negative count shifts everything out, as one of 32 or more does.
inline WrappingInt shift_left(WrappingInt x, WrappingInt y) {
    return y.bits() < 32 ? WrappingInt::from_bits(x.bits() << y.bits()) : WrappingInt(0);
}

inline WrappingInt shift_right(WrappingInt x, WrappingInt y) {
    return x.value() >> (y.bits() < 32 ? y.bits() : 31);
}

// The upper half of the doubled product at the width of T, rounded; of signed types only the square
// of the smallest value does not fit, and gives the largest. Uint8 is taken at the same shift of 7,
// so products of 2^15 and more wrap.
template <typename T>
WrappingInt rounding_high_mul(WrappingInt x, WrappingInt y) {
    using Limits = std::numeric_limits<T>;
    constexpr int BITS = static_cast<int>(sizeof(T) * 8) - 1;
    constexpr int64_t LOW_MASK = (int64_t{1} << BITS) - 1;
    if (std::is_signed<T>::value && x == Limits::min() && y == Limits::min())
        return Limits::max();
    const int64_t product = int64_t{x.value()} * y.value();
    const int64_t round = (product & LOW_MASK) > LOW_MASK / 2 ? 1 : 0;
    return static_cast<int32_t>((product >> BITS) + round);
}

}  // namespace kern::formula

namespace kern {

// Formula<MODE>::apply<T>(x, ...): one output element from the mode's inputs.
template <ElementwiseMode MODE>
struct Formula;

#define KERN_FIRST(first, ...) first
#define KERN_SECOND(first, second, ...) second
#define KERN_FLOAT_FORMULA(...) KERN_FIRST(__VA_ARGS__, )
#define KERN_INT_FORMULA(...) KERN_SECOND(__VA_ARGS__, __VA_ARGS__, )
#define KERN_ELEMENTWISE_MODE(number, NAME, text, arity, commutable, allow_int, allow_float, ...) \
    template <>                                                                                   \
    struct Formula<ElementwiseMode::NAME> {                                                       \
        static constexpr ModeTrait TRAIT{arity, commutable, allow_int, allow_float, text};        \
                                                                                                  \
        template <typename T>                                                                     \
        static T apply(T x_in, T y_in = T{}, T z_in = T{}, T w_in = T{}) {                        \
            using namespace formula;                                                              \
            [[maybe_unused]] const auto x = widen(x_in);                                          \
            [[maybe_unused]] const auto y = widen(y_in);                                          \
            [[maybe_unused]] const auto z = widen(z_in);                                          \
            [[maybe_unused]] const auto w = widen(w_in);                                          \
            if constexpr (std::is_integral<T>::value)                                             \
                return narrow<T>(Working<T>(KERN_INT_FORMULA(__VA_ARGS__)));                      \
            else                                                                                  \
                return narrow<T>(Working<T>(KERN_FLOAT_FORMULA(__VA_ARGS__)));                    \
        }                                                                                         \
    };
#include "kernels/operators/elementwise_modes.inc"
#undef KERN_ELEMENTWISE_MODE
#undef KERN_FIRST
#undef KERN_SECOND
#undef KERN_FLOAT_FORMULA
#undef KERN_INT_FORMULA

// Kernel<MODE, T>::run for a dtype that the mode accepts; anything else stops the process.
template <template <ElementwiseMode, typename> class Kernel, ElementwiseMode MODE>
auto select_elementwise_dtype(DTypeEnum dtype) {
    const auto kernel = with_number_type(dtype, [](auto tag) {
        using T = typename decltype(tag)::Type;
        constexpr auto CATEGORY =
            std::is_integral<T>::value ? DTypeCategory::INTEGER : DTypeCategory::FLOAT;
        decltype(&Kernel<MODE, T>::run) result = nullptr;
        if constexpr (Formula<MODE>::TRAIT.accepts(CATEGORY))
            result = &Kernel<MODE, T>::run;
        return result;
    });
    KERN_CHECK(kernel);
    return kernel;
}

// The kernel for one of the modes with ARITY inputs; ARITY 0 stands for all modes. A mode of
// another arity stops the process.
template <template <ElementwiseMode, typename> class Kernel, uint32_t ARITY>
auto select_elementwise(ElementwiseMode mode, DTypeEnum dtype) {
    using Function = decltype(&Kernel<ElementwiseMode::ADD, float>::run);
    switch (mode) {
#define KERN_ELEMENTWISE_MODE(number, NAME, text, arity, ...)                                \
    case ElementwiseMode::NAME:                                                              \
        if constexpr (ARITY == 0 || ARITY == arity)                                          \
            return Function(select_elementwise_dtype<Kernel, ElementwiseMode::NAME>(dtype)); \
        break;
#include "kernels/operators/elementwise_modes.inc"
#undef KERN_ELEMENTWISE_MODE
    }
    KERN_FAIL();
}

}  // namespace kern
