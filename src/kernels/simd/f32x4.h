// Four floats side by side, one vector register. Lanes never mix in arithmetic, so a lane has the
// bits that scalar code would give it. Pointers need no alignment unless the name says so.
#pragma once

#include <cstring>

namespace kern::simd {

typedef float F32x4 __attribute__((vector_size(16)));

inline F32x4 zero() {
    return F32x4{0.0f, 0.0f, 0.0f, 0.0f};
}

inline F32x4 broadcast(float value) {
    return F32x4{value, value, value, value};
}

inline F32x4 load(const float* source) {
    F32x4 result;
    std::memcpy(&result, source, sizeof(result));
    return result;
}

inline F32x4 load_aligned(const float* source) {
    F32x4 result;
    std::memcpy(&result, __builtin_assume_aligned(source, sizeof(result)), sizeof(result));
    return result;
}

inline void store(float* target, F32x4 value) {
    std::memcpy(target, &value, sizeof(value));
}

// sum + a * b with both operations rounded.
inline F32x4 add_product(F32x4 sum, F32x4 a, F32x4 b) {
    return sum + a * b;
}

// Lane j of row i becomes lane i of row j.
inline void transpose(F32x4& r0, F32x4& r1, F32x4& r2, F32x4& r3) {
    const F32x4 low01 = __builtin_shufflevector(r0, r1, 0, 4, 1, 5);
    const F32x4 low23 = __builtin_shufflevector(r2, r3, 0, 4, 1, 5);
    const F32x4 high01 = __builtin_shufflevector(r0, r1, 2, 6, 3, 7);
    const F32x4 high23 = __builtin_shufflevector(r2, r3, 2, 6, 3, 7);
    r0 = __builtin_shufflevector(low01, low23, 0, 1, 4, 5);
    r1 = __builtin_shufflevector(low01, low23, 2, 3, 6, 7);
    r2 = __builtin_shufflevector(high01, high23, 0, 1, 4, 5);
    r3 = __builtin_shufflevector(high01, high23, 2, 3, 6, 7);
}

}  // namespace kern::simd
