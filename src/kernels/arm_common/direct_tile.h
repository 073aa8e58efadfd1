// Direct convolution of one plane in tiles of a few rows by one vector of outputs, whose sums stay
// in registers: each row of the input is loaded once for all taps and output rows that it meets.
// A policy tells what lanes are: FloatLanes of direct_float.cpp, Int8Lanes of direct_int8.cpp.
#pragma once

#include <algorithm>
#include <utility>

#include "kernels/arm_common/direct_frame.h"
#include "kernels/simd/windows.h"

namespace kern::arm_common {

// `function` with the constants from 0 on, one after the other. Inlined whatever it holds, or sums
// would leave their registers.
template <typename Function, size_t... INDEX>
[[gnu::always_inline]] inline void for_each_constant(std::index_sequence<INDEX...>,
                                                     const Function& function) {
    (function(std::integral_constant<size_t, INDEX>()), ...);
}

template <size_t COUNT, typename Function>
[[gnu::always_inline]] inline void for_constants(const Function& function) {
    for_each_constant(std::make_index_sequence<COUNT>(), function);
}

// Adds to neighbouring tiles of a row of them; `target` holds the sums so far.
template <typename In, typename Out>
using AddTiles = void (*)(const PlaneConvolution<In, Out>& plane, const In* source, Out* target,
                          ptrdiff_t target_step, size_t tiles);

// Of square filters of a fixed side.
template <typename Lanes, size_t SIDE, size_t STRIDE, size_t ROWS>
void add_square_tiles(const PlaneConvolution<typename Lanes::In, typename Lanes::Out>& plane,
                      const typename Lanes::In* source, typename Lanes::Out* target,
                      ptrdiff_t target_step, size_t tiles) {
    const typename Lanes::template Taps<SIDE> taps(plane.taps);
    const bool is_first = plane.is_first;
    const auto width = static_cast<ptrdiff_t>(plane.source_width);
    for (; tiles != 0; --tiles, source += Lanes::LANES * STRIDE, target += Lanes::LANES) {
        typename Lanes::Sum sums[ROWS];
        const typename Lanes::Out* old = target;
        for_constants<ROWS>([&](auto row) {
            sums[row] = is_first ? Lanes::zero() : simd::load_and_move(old, target_step);
        });
        const typename Lanes::In* line = source;
        for_constants<(ROWS - 1) * STRIDE + SIDE>([&](auto y) __attribute__((always_inline)) {
            const typename Lanes::template Window<SIDE, STRIDE> window(line, width);
            for_constants<ROWS>([&](auto row) __attribute__((always_inline)) {
                constexpr size_t FIRST = decltype(row)::value * STRIDE, Y = decltype(y)::value;
                if constexpr (Y >= FIRST && Y < FIRST + SIDE)
                    for_constants<SIDE>([&](auto x) __attribute__((always_inline)) {
                        sums[row] = Lanes::template add_tap<Y - FIRST, decltype(x)::value>(
                            sums[row], window, taps);
                    });
            });
        });
        typename Lanes::Out* sum = target;
        for_constants<ROWS>([&](auto row) { simd::store_next(sum, sums[row], target_step); });
    }
}

// The outputs of a tile that count, in rows and lanes from the first to the last.
struct TilePart {
    size_t first_row, first_lane, lanes;
};

// A tile that sticks out, or lies over one that is finished: worked on beside the output.
template <size_t ROWS, size_t LANES, typename In, typename Out>
void add_part(const PlaneConvolution<In, Out>& plane, AddTiles<In, Out> add, const In* source,
              Out* target, const TilePart& part) {
    Out values[ROWS * LANES] = {};
    for (size_t row = 0; row < ROWS && !plane.is_first; ++row)
        std::copy_n(target + row * plane.ow, part.lanes, values + row * LANES);
    add(plane, source, values, LANES, 1);
    for (size_t row = part.first_row; row < ROWS; ++row)
        std::copy(values + row * LANES + part.first_lane, values + row * LANES + part.lanes,
                  target + row * plane.ow + part.first_lane);
}

// For at least as many rows of outputs as a tile has. The last tiles of a row and of a column lie
// over those before them.
template <size_t ROWS, size_t LANES, typename In, typename Out>
[[gnu::noinline]] void convolve_in_tiles(const PlaneConvolution<In, Out>& plane,
                                         AddTiles<In, Out> add) {
    const size_t last_y = plane.oh - ROWS;
    const size_t last_x = plane.ow < LANES ? 0 : plane.ow - LANES;
    for (size_t y = 0; y < plane.oh; y += ROWS) {
        const size_t first_y = std::min(y, last_y);
        const In* source = plane.source + first_y * plane.stride * plane.source_width;
        Out* target = plane.target + first_y * plane.ow;
        size_t x = 0;
        if (first_y == y) {
            add(plane, source, target, static_cast<ptrdiff_t>(plane.ow), plane.ow / LANES);
            x = plane.ow / LANES * LANES;
        }
        for (; x < plane.ow; x += LANES) {
            const size_t first_x = std::min(x, last_x);
            add_part<ROWS, LANES>(plane, add, source + first_x * plane.stride, target + first_x,
                                  {y - first_y, x - first_x, std::min(LANES, plane.ow - first_x)});
        }
    }
}

// One output after the other, where vectors would be too wide or there are too few rows.
template <typename Sum, typename In, typename Out>
void convolve_one_by_one(const PlaneConvolution<In, Out>& plane) {
    for (size_t y = 0; y < plane.oh; ++y) {
        for (size_t x = 0; x < plane.ow; ++x) {
            const In* source = plane.source + (y * plane.source_width + x) * plane.stride;
            Out& target = plane.target[y * plane.ow + x];
            auto sum = plane.is_first ? Sum{} : static_cast<Sum>(target);
            const In* tap = plane.taps;
            for (size_t tap_y = 0; tap_y < plane.fh; ++tap_y, source += plane.source_width) {
                for (size_t tap_x = 0; tap_x < plane.fw; ++tap_x, ++tap)
                    sum += static_cast<Sum>(*tap) * static_cast<Sum>(source[tap_x]);
            }
            target = static_cast<Out>(sum);
        }
    }
}

// Vectors may be wider than a row of outputs, as long as what they load lies in the planes.
template <typename Lanes, size_t SIDE, size_t STRIDE>
void convolve_square(const PlaneConvolution<typename Lanes::In, typename Lanes::Out>& plane) {
    constexpr size_t READ = Lanes::template Window<SIDE, STRIDE>::READ;
    constexpr size_t ROWS = 4;
    const bool is_narrow =
        plane.ow < Lanes::LANES && READ > plane.source_width + OVERRUN<typename Lanes::In>;
    if (plane.oh < ROWS || is_narrow)
        return convolve_one_by_one<typename Lanes::ScalarSum>(plane);
    AddTiles<typename Lanes::In, typename Lanes::Out> add =
        &add_square_tiles<Lanes, SIDE, STRIDE, ROWS>;
    simd::keep_in_register(add);  // or the compiler copies the walk for every tile
    convolve_in_tiles<ROWS, Lanes::LANES>(plane, add);
}

}  // namespace kern::arm_common
