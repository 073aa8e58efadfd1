// Loops over arrays by whole vectors: a list of inputs, each a stream of elements or the same
// lanes all along, and an operation on what they give. Stateless; borrows all memory.
#pragma once

#include <cstddef>
#include <cstring>

#include "kernels/simd/f32x4.h"
#include "kernels/simd/integers.h"

namespace kern::arm_common {

// How elements T in memory become what an operation works on: here one vector of them. Another
// packet may hold several vectors or other lanes, and has the same members.
template <typename T>
struct VectorPacket {
    using Element = T;
    using Value = simd::Vector<T>;
    static constexpr size_t WIDTH = simd::LANES<T>;

    static Value load(const T* source) { return simd::load(source); }
    static void store(T* target, Value value) { simd::store(target, value); }
};

// Consecutive elements; `next` steps over a packet of them.
template <typename Packet>
struct Stream {
    using Element = typename Packet::Element;
    const Element* position;

    typename Packet::Value next() {
        const auto value = Packet::load(position);
        position += Packet::WIDTH;
        return value;
    }
    // The last `count` elements, fewer than a packet, with zeros behind them.
    typename Packet::Value rest(size_t count) const {
        Element padded[Packet::WIDTH] = {};
        std::memcpy(padded, position, count * sizeof(Element));
        return Packet::load(padded);
    }
};

// The same value at every place.
template <typename Value>
struct Constant {
    Value value;

    Value next() const { return value; }
    Value rest(size_t) const { return value; }
};

// `period` elements, a divisor of the number of lanes, over and over.
template <typename T>
Constant<simd::Vector<T>> repeated(const T* elements, size_t period) {
    if (period == 1)
        return {simd::broadcast(*elements)};
    T lanes[simd::LANES<T>];
    for (size_t lane = 0; lane < simd::LANES<T>; ++lane)
        lanes[lane] = elements[lane % period];
    return {simd::load(lanes)};
}

// target[i] = operation(x[i], ...) for the `count` elements x of each input. The rest that does not
// fill a packet goes through the same operation, so an element's result does not depend on its
// place. The target may be the memory of a stream. Out of line, as a walk over rows calls it from
// several places.
template <typename Packet, typename Operation, typename... Inputs>
[[gnu::noinline]] void map_packets(typename Packet::Element* target, size_t count,
                                   Operation operation, Inputs... inputs) {
    constexpr size_t WIDTH = Packet::WIDTH;
    if constexpr (WIDTH < 8) {
        // Two at a time: the steps of a long operation wait for each other.
        for (; count >= 2 * WIDTH; count -= 2 * WIDTH, target += 2 * WIDTH) {
            const auto first = operation(inputs.next()...);
            const auto second = operation(inputs.next()...);
            Packet::store(target, first);
            Packet::store(target + WIDTH, second);
        }
    }
    for (; count >= WIDTH; count -= WIDTH, target += WIDTH)
        Packet::store(target, operation(inputs.next()...));
    if (count > 0) {
        typename Packet::Element rest[WIDTH];
        Packet::store(rest, operation(inputs.rest(count)...));
        std::memcpy(target, rest, count * sizeof(rest[0]));
    }
}

}  // namespace kern::arm_common
