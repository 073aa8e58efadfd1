// Real numbers stored as small integers: element q of a quantised type means
// scale * (q - zero point). Pure functions.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "kernels/check.h"
#include "kernels/types/dtype.h"

namespace kern {

// Truncates toward zero. What 32 bits cannot hold takes the nearest value, and NaN is 0: the same
// on every machine, where a plain cast is undefined.
inline int32_t truncate_to_int(float value) {
    constexpr float LIMIT = 2147483648.0f;
    if (!(value < LIMIT))
        return value >= LIMIT ? std::numeric_limits<int32_t>::max() : 0;
    return value < -LIMIT ? std::numeric_limits<int32_t>::min() : static_cast<int32_t>(value);
}

// What the type cannot hold takes its nearest value.
template <typename T>
T saturate(int64_t value) {
    using Limits = std::numeric_limits<T>;
    return static_cast<T>(std::clamp<int64_t>(value, Limits::min(), Limits::max()));
}

struct Quantisation {
    float scale;
    int32_t zero_point;

    // Stops the process on a type that is not quantised.
    static Quantisation of(DType dtype) {
        switch (dtype.enum_value()) {
            case DTypeEnum::QUANTIZED8_ASYMM: {
                const auto& param = dtype.param<Quantized8AsymmParam>();
                return {param.scale, param.zero_point};
            }
            case DTypeEnum::QUANTIZED_S32:
                return {dtype.param<QuantizedS32Param>().scale, 0};
            case DTypeEnum::QUANTIZED_S8:
                return {dtype.param<QuantizedS8Param>().scale, 0};
            default:
                KERN_FAIL();
        }
    }

    template <typename Stored>
    float real(Stored element) const {
        return static_cast<float>(int32_t{element} - zero_point) * scale;
    }

    // The nearest element, halves away from zero before the zero point is added; what the type
    // cannot hold takes its nearest value. NaN becomes the zero point.
    template <typename Stored>
    Stored nearest(float value) const {
        return saturate<Stored>(int64_t{truncate_to_int(std::round(value / scale))} + zero_point);
    }
};

}  // namespace kern
