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

// Square filters of a fixed side.
template <typename Lanes, size_t SIDE, size_t STRIDE, size_t NR_ROWS>
struct SquareTile {
    using In = typename Lanes::In;
    using Out = typename Lanes::Out;
    using Plane = PlaneConvolution<In, Out>;
    static constexpr size_t ROWS = NR_ROWS;
    static constexpr size_t LANES = Lanes::LANES;

    typename Lanes::template Taps<SIDE> taps;

    explicit SquareTile(const Plane& plane) : taps(plane.taps) {}

    // Neighbouring tiles of a row; `target` holds the sums so far.
    [[gnu::noinline]] void add(const Plane& plane, const In* source, Out* target,
                               ptrdiff_t target_step, size_t tiles) const {
        const auto all_taps = taps;
        const bool is_first = plane.is_first;
        const auto width = static_cast<ptrdiff_t>(plane.source_width);
        for (; tiles != 0; --tiles, source += LANES * STRIDE, target += LANES) {
            typename Lanes::Sum sums[ROWS];
            const Out* old = target;
            for_constants<ROWS>([&](auto row) {
                sums[row] = is_first ? Lanes::zero() : simd::load_and_move(old, target_step);
            });
            const In* line = source;
            for_constants<(ROWS - 1) * STRIDE + SIDE>([&](auto y) {
                const typename Lanes::template Window<SIDE, STRIDE> window(line, width);
                for_constants<ROWS>([&](auto row) {
                    constexpr size_t FIRST = decltype(row)::value * STRIDE, Y = decltype(y)::value;
                    if constexpr (Y >= FIRST && Y < FIRST + SIDE)
                        for_constants<SIDE>([&](auto x) {
                            sums[row] = Lanes::template add_tap<Y - FIRST, decltype(x)::value>(
                                sums[row], window, all_taps);
                        });
                });
            });
            Out* sum = target;
            for_constants<ROWS>([&](auto row) { simd::store_next(sum, sums[row], target_step); });
        }
    }
};

// The outputs of a tile that count, in rows and lanes from the first to the last.
struct TilePart {
    size_t first_row, first_lane, lanes;
};

// A tile that sticks out, or lies over one that is finished: worked on beside the output.
template <typename Tile, typename Plane>
void add_part(const Tile& tile, const Plane& plane, const typename Tile::In* source,
              typename Tile::Out* target, const TilePart& part) {
    typename Tile::Out values[Tile::ROWS * Tile::LANES] = {};
    for (size_t row = 0; row < Tile::ROWS && !plane.is_first; ++row)
        std::copy_n(target + row * plane.ow, part.lanes, values + row * Tile::LANES);
    tile.add(plane, source, values, Tile::LANES, 1);
    for (size_t row = part.first_row; row < Tile::ROWS; ++row)
        std::copy(values + row * Tile::LANES + part.first_lane,
                  values + row * Tile::LANES + part.lanes,
                  target + row * plane.ow + part.first_lane);
}

// For at least as many rows of outputs as a tile has. The last tiles of a row and of a column lie
// over those before them.
template <typename Tile, typename Plane>
void convolve_in_tiles(const Plane& plane) {
    const Tile tile(plane);
    const size_t last_y = plane.oh - Tile::ROWS;
    const size_t last_x = plane.ow < Tile::LANES ? 0 : plane.ow - Tile::LANES;
    for (size_t y = 0; y < plane.oh; y += Tile::ROWS) {
        const size_t first_y = std::min(y, last_y);
        const auto* source = plane.source + first_y * plane.stride * plane.source_width;
        auto* target = plane.target + first_y * plane.ow;
        size_t x = 0;
        if (first_y == y) {
            tile.add(plane, source, target, static_cast<ptrdiff_t>(plane.ow),
                     plane.ow / Tile::LANES);
            x = plane.ow / Tile::LANES * Tile::LANES;
        }
        for (; x < plane.ow; x += Tile::LANES) {
            const size_t first_x = std::min(x, last_x);
            add_part(tile, plane, source + first_x * plane.stride, target + first_x,
                     {y - first_y, x - first_x, std::min(Tile::LANES, plane.ow - first_x)});
        }
    }
}

// One output after the other.
template <typename Sum, typename Plane>
void convolve_one_by_one(const Plane& plane) {
    for (size_t y = 0; y < plane.oh; ++y) {
        for (size_t x = 0; x < plane.ow; ++x) {
            const auto* source = plane.source + (y * plane.source_width + x) * plane.stride;
            auto& target = plane.target[y * plane.ow + x];
            auto sum = plane.is_first ? Sum{} : static_cast<Sum>(target);
            for (size_t tap = 0; tap < plane.fh * plane.fw; ++tap)
                sum +=
                    static_cast<Sum>(plane.taps[tap]) *
                    static_cast<Sum>(source[tap / plane.fw * plane.source_width + tap % plane.fw]);
            target = static_cast<std::remove_reference_t<decltype(target)>>(sum);
        }
    }
}

// Vectors may be wider than a row of outputs, as long as what they load lies in the planes.
template <typename Lanes, size_t SIDE, size_t STRIDE>
void convolve_square(const PlaneConvolution<typename Lanes::In, typename Lanes::Out>& plane) {
    constexpr size_t READ = Lanes::template Window<SIDE, STRIDE>::READ;
    constexpr size_t ROWS = 4;
    if (plane.ow < Lanes::LANES && READ > plane.source_width + OVERRUN<typename Lanes::In>)
        convolve_one_by_one<typename Lanes::ScalarSum>(plane);
    else if (plane.oh < ROWS)
        convolve_in_tiles<SquareTile<Lanes, SIDE, STRIDE, 1>>(plane);
    else
        convolve_in_tiles<SquareTile<Lanes, SIDE, STRIDE, ROWS>>(plane);
}

}  // namespace kern::arm_common
