// Elements of up to 32 bits as 32-bit lanes, for loops whose inputs and output differ in width: a
// packet of vector_loop.h. Stateless; borrows all memory.
#pragma once

#include <cstdint>
#include <cstring>

#include "kernels/arm_common/vector_loop.h"

namespace kern::arm_common {

struct I32x8 {
    simd::I32x4 first;
    simd::I32x4 last;
};

inline simd::I16x8 load_eight_int16(const int8_t* source) {
    return simd::to_int16(simd::load_eight(source));
}
inline simd::I16x8 load_eight_int16(const int16_t* source) {
    return simd::load(source);
}
inline void store_saturated(int8_t* target, simd::I16x8 value) {
    simd::store_eight(target, simd::saturate_to_int8(value));
}
inline void store_saturated(uint8_t* target, simd::I16x8 value) {
    const simd::I8x8 bytes = simd::saturate_to_uint8(value);
    std::memcpy(target, &bytes, sizeof(bytes));
}
inline void store_saturated(int16_t* target, simd::I16x8 value) {
    simd::store(target, value);
}

// Eight elements of any width in 32-bit lanes; saturated to the width when stored.
template <typename T>
struct WidePacket {
    using Element = T;
    using Value = I32x8;
    static constexpr size_t WIDTH = 8;

    static Value load(const T* source) {
        if constexpr (sizeof(T) == 4) {
            return {simd::load(source), simd::load(source + 4)};
        } else {
            const simd::I16x8 values = load_eight_int16(source);
            return {simd::first_to_int32(values), simd::last_to_int32(values)};
        }
    }
    static void store(T* target, Value value) {
        if constexpr (sizeof(T) == 4) {
            simd::store(target, value.first);
            simd::store(target + 4, value.last);
        } else {
            store_saturated(target, simd::saturate_to_int16(value.first, value.last));
        }
    }
};

}  // namespace kern::arm_common
