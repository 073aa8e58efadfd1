// The 16-byte vectors of the kernels and what works on each of them alike. On Arm they are the NEON
// types, elsewhere the compiler's own vectors, so that one text of a kernel runs on both. Integer
// vectors take the ordinary operators where nothing can overflow, which is as undefined in a lane
// as in an int; those that wrap around are in integers.h. Those of floats are in f32x4.h, because
// the compiler would make scalar code of their operators on NEON.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace kern::simd {

#if defined(__ARM_NEON)
using F32x4 = float32x4_t;
using I32x4 = int32x4_t;
using I16x8 = int16x8_t;
using I8x16 = int8x16_t;
using I8x8 = int8x8_t;
using U32x4 = uint32x4_t;
using U16x8 = uint16x8_t;
using U8x16 = uint8x16_t;
#else
typedef float F32x4 __attribute__((vector_size(16)));
typedef int32_t I32x4 __attribute__((vector_size(16)));
typedef int16_t I16x8 __attribute__((vector_size(16)));
typedef int8_t I8x16 __attribute__((vector_size(16)));
typedef int8_t I8x8 __attribute__((vector_size(8)));
typedef uint32_t U32x4 __attribute__((vector_size(16)));
typedef uint16_t U16x8 __attribute__((vector_size(16)));
typedef uint8_t U8x16 __attribute__((vector_size(16)));
#endif

// The vector type of an element type, and its number of lanes.
template <typename Element>
struct VectorOf;
template <>
struct VectorOf<float> {
    using Type = F32x4;
};
template <>
struct VectorOf<int32_t> {
    using Type = I32x4;
};
template <>
struct VectorOf<int16_t> {
    using Type = I16x8;
};
template <>
struct VectorOf<int8_t> {
    using Type = I8x16;
};
template <typename Element>
using Vector = typename VectorOf<Element>::Type;
template <typename Element>
constexpr size_t LANES = sizeof(Vector<Element>) / sizeof(Element);

// 16 bytes from anywhere; no alignment is needed.
template <typename Element>
inline Vector<Element> load(const Element* source) {
    Vector<Element> result;
    std::memcpy(&result, source, sizeof(result));
    return result;
}

template <typename Element>
inline void store(Element* target, Vector<Element> value) {
    std::memcpy(target, &value, sizeof(value));
}

// For sequential walks: each moves the pointer on. NEON loads and stores can move their address, by
// 16 bytes or by a register, but have no offsets; the compiler would make offsets of a chain of
// moves that it sees through, and a separate addition of each.
template <typename Word>
inline void keep_in_register(Word& word) {
#if defined(__ARM_NEON)
    __asm__("" : "+r"(word));
#else
    static_cast<void>(word);
#endif
}

template <typename Element>
inline Vector<Element> load_next(const Element*& source) {
    const Vector<Element> result = load(source);
    source += LANES<Element>;
    keep_in_register(source);
    return result;
}

// `step` in elements; a constant one belongs into a variable that is kept in a register.
template <typename Element>
inline void store_next(Element*& target, Vector<Element> value, ptrdiff_t step) {
    store(target, value);
    target += step;
    keep_in_register(target);
}

// The first `count` lanes, for what is left of a row; the other lanes are zeros, and nothing behind
// the real ones is read. With a full count a plain load.
template <typename Element>
inline Vector<Element> load_first(const Element* source, size_t count) {
    if (count == LANES<Element>)
        return load(source);
    Element values[LANES<Element>] = {};
    std::memcpy(values, source, count * sizeof(Element));
    return load(values);
}

// Writes the first `count` lanes only.
template <typename Element>
inline void store_first(Element* target, Vector<Element> value, size_t count) {
    std::memcpy(target, &value, count * sizeof(Element));
}

// The same bits seen as another vector type of the same size.
template <typename To, typename From>
inline To bit_cast(From value) {
    static_assert(sizeof(To) == sizeof(From), "a cast keeps every bit");
    To result;
    std::memcpy(&result, &value, sizeof(result));
    return result;
}

// Whether the mask's bits are set in every lane.
inline bool all_set(I32x4 mask) {
    uint64_t halves[2];
    std::memcpy(halves, &mask, sizeof(mask));
    return (halves[0] & halves[1]) == UINT64_MAX;
}

}  // namespace kern::simd
