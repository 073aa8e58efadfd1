// The modes of ElementwiseMultiType as functions of one element each, and their selection by the
// dtypes of a call. For the kernels' own files only. Stateless.
#pragma once

#include <cmath>
#include <tuple>

#include "kernels/operators/elementwise_formulas.h"
#include "kernels/operators/elementwise_multi_type.h"
#include "kernels/types/quantise.h"

namespace kern::multi_type {

using Mode = ElementwiseMultiType::Mode;

// x / 2^count to the nearest number, ties away from zero. A count that shifts all bits out leaves
// the sign. Out of line, as kernels for two dozen sets of types call it: inlined and vectorised in
// each they took some 60 kB on Arm.
[[gnu::noinline]] inline int32_t rounding_shift_right(int32_t x, int32_t count) {
    const bool all_bits = static_cast<uint32_t>(count) >= 32;
    const int32_t mask = all_bits ? 0 : static_cast<int32_t>((1u << count) - 1);
    const int32_t threshold = (mask >> 1) + (x < 0 ? 1 : 0);
    return (x >> (all_bits ? 31 : count)) + ((x & mask) > threshold ? 1 : 0);
}

// A rule has the types of the inputs and of the output, and the function of one element.

struct MulAddToInt32 {
    using Inputs = std::tuple<int16_t, int32_t, int32_t>;
    using Output = int32_t;

    Output operator()(int16_t x, int32_t y, int32_t z) const {
        return (WrappingInt(x) * WrappingInt(y) + WrappingInt(z)).value();
    }
};

template <typename X>
struct MulAddToInt8 {
    using Inputs = std::tuple<X, float, float>;
    using Output = int8_t;

    Output operator()(X x, float y, float z) const {
        return saturate<int8_t>(truncate_to_int(std::rint(static_cast<float>(x) * y + z)));
    }
};

template <typename Out, typename X, typename Count>
struct ShiftTo {
    using Inputs = std::tuple<X, Count>;
    using Output = Out;

    Output operator()(X x, Count count) const {
        return saturate<Out>(rounding_shift_right(x, count));
    }
};

template <typename T, typename Count>
struct AddMulShift {
    using Inputs = std::tuple<T, T, T, Count>;
    using Output = int8_t;

    Output operator()(T x, T y, T z, Count count) const {
        const T sum = narrow<T>(WrappingInt(x) + WrappingInt(y));
        const WrappingInt product = formula::rounding_high_mul<T>(sum, z);
        return saturate<int8_t>(rounding_shift_right(product.value(), count));
    }
};

template <bool RELU, typename Out>
struct QuantisedAdd {
    using Inputs = std::tuple<int8_t, int8_t>;
    using Output = Out;

    float x_scale;
    float y_scale;
    Quantisation out;

    Output operator()(int8_t x, int8_t y) const {
        const float sum = static_cast<float>(x) * x_scale + static_cast<float>(y) * y_scale;
        return out.nearest<Out>(RELU && !(sum > 0) ? 0 : sum);
    }
};

inline DType dtype_of(const BroadcastSet& inputs, size_t i) {
    return inputs.views[i].layout.dtype;
}

// `function(TypeTag<T>{})` with the T that stores a signed integer dtype; others stop the process.
template <typename Function>
void with_signed_type(DType dtype, Function function) {
    switch (dtype.enum_value()) {
        case DTypeEnum::INT8:
            return function(TypeTag<int8_t>{});
        case DTypeEnum::INT16:
            return function(TypeTag<int16_t>{});
        case DTypeEnum::INT32:
            return function(TypeTag<int32_t>{});
        default:
            KERN_FAIL();
    }
}

template <bool RELU, typename Function>
void with_quantised_add(const BroadcastSet& inputs, DType output, Function function) {
    const float x_scale = dtype_of(inputs, 0).param<QuantizedS8Param>().scale;
    const float y_scale = dtype_of(inputs, 1).param<QuantizedS8Param>().scale;
    const Quantisation out = Quantisation::of(output);
    switch (output.enum_value()) {
        case DTypeEnum::QUANTIZED_S8:
            return function(QuantisedAdd<RELU, int8_t>{x_scale, y_scale, out});
        case DTypeEnum::QUANTIZED8_ASYMM:
            return function(QuantisedAdd<RELU, uint8_t>{x_scale, y_scale, out});
        default:
            return function(QuantisedAdd<RELU, int32_t>{x_scale, y_scale, out});
    }
}

// `function(rule)` with the rule for the call's dtypes; dtypes that the mode does not take stop the
// process.
template <Mode MODE, typename Function>
void with_rule(const BroadcastSet& inputs, DType output, Function function) {
    const auto check = [&](size_t i, DType wanted) { KERN_CHECK(dtype_of(inputs, i) == wanted); };
    if constexpr (MODE == Mode::MUL_ADD_TO_INT32) {
        check(0, DType::Int16());
        check(1, DType::Int32());
        check(2, DType::Int32());
        function(MulAddToInt32{});
    } else if constexpr (MODE == Mode::MUL_ADD_TO_INT8) {
        check(1, DType::Float32());
        check(2, DType::Float32());
        if (dtype_of(inputs, 0) == DType::Int16())
            return function(MulAddToInt8<int16_t>{});
        check(0, DType::Int32());
        function(MulAddToInt8<int32_t>{});
    } else if constexpr (MODE == Mode::SHIFT_TO_INT8 || MODE == Mode::SHIFT_TO_INT16) {
        using Out = std::conditional_t<MODE == Mode::SHIFT_TO_INT8, int8_t, int16_t>;
        with_signed_type(dtype_of(inputs, 0), [&](auto x) {
            with_signed_type(dtype_of(inputs, 1), [&](auto count) {
                function(
                    ShiftTo<Out, typename decltype(x)::Type, typename decltype(count)::Type>{});
            });
        });
    } else if constexpr (MODE == Mode::ADD_MUL_SHIFT_INT16 || MODE == Mode::ADD_MUL_SHIFT_INT32) {
        constexpr bool NARROW = MODE == Mode::ADD_MUL_SHIFT_INT16;
        using T = std::conditional_t<NARROW, int16_t, int32_t>;
        for (size_t i = 0; i < 3; ++i)
            check(i, NARROW ? DType::Int16() : DType::Int32());
        with_signed_type(dtype_of(inputs, 3), [&](auto count) {
            function(AddMulShift<T, typename decltype(count)::Type>{});
        });
    } else {
        with_quantised_add<MODE == Mode::QUANTISED_ADD_RELU>(inputs, output, function);
    }
}

}  // namespace kern::multi_type
