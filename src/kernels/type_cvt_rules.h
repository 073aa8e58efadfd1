// How one element is converted, and the selection of a kernel by the pair of dtypes.
#pragma once

#include <cstdint>
#include <limits>
#include <type_traits>

#include "kernels/dtype_switch.h"

namespace kern {

// Truncates toward zero. What 32 bits cannot hold takes the nearest value, and NaN is 0: the same
// on every machine, where a plain cast is undefined.
inline int32_t truncate_to_int(float value) {
    constexpr float LIMIT = 2147483648.0f;
    if (!(value < LIMIT))
        return value >= LIMIT ? std::numeric_limits<int32_t>::max() : 0;
    return value < -LIMIT ? std::numeric_limits<int32_t>::min() : static_cast<int32_t>(value);
}

// An integer that does not fit keeps its low bits; halves go through 32-bit floats.
template <typename To, typename From>
To convert_element(From value) {
    constexpr bool FROM_INT = std::is_integral<From>::value;
    if constexpr (std::is_same<To, From>::value)
        return value;
    else if constexpr (std::is_integral<To>::value && FROM_INT)
        return static_cast<To>(value);
    else if constexpr (std::is_integral<To>::value)
        return static_cast<To>(truncate_to_int(static_cast<float>(value)));
    else
        return static_cast<To>(static_cast<float>(value));
}

// Kernel<To, From>::run. Stops the process on quantised types, which have no rules yet, and on
// types that are no numbers.
template <template <typename To, typename From> class Kernel>
auto select_type_cvt(DTypeEnum to, DTypeEnum from) {
    const auto kernel = with_number_type(to, [from](auto to_tag) {
        return with_number_type(from, [](auto from_tag) {
            return &Kernel<typename decltype(to_tag)::Type, typename decltype(from_tag)::Type>::run;
        });
    });
    KERN_CHECK(kernel);
    return kernel;
}

}  // namespace kern
