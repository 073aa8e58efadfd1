// What this machine can do at most, measured: multiply-adds per second of the widest instructions
// that the library uses here, and bytes read per second. Zero where the instructions are unknown.
// Each call takes the best of many short bursts, since other work on the machine only ever slows
// one down.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#if defined(__x86_64__)
#include "kernels/x86/cpu.h"
#endif

namespace machine_limits {

inline double seconds_now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// The highest rate that `burst`, which returns how many operations it did, reaches.
template <typename Burst>
double best_rate(Burst burst, size_t bursts) {
    double best = 0;
    for (size_t i = 0; i < bursts; ++i) {
        const double start = seconds_now();
        const double operations = burst();
        best = std::max(best, operations / (seconds_now() - start));
    }
    return best;
}

#if defined(__x86_64__)
// Twelve independent instructions: more than any unit's latency times its number.
#define MACHINE_LIMITS_TWELVE(instruction, wide)                                                 \
    for (int i = 0; i < 2000; ++i)                                                               \
        asm volatile(instruction " %%" wide "mm12,%%" wide "mm13,%%" wide "mm0\n\t" instruction  \
                                 " %%" wide "mm12,%%" wide "mm13,%%" wide "mm1\n\t" instruction  \
                                 " %%" wide "mm12,%%" wide "mm13,%%" wide "mm2\n\t" instruction  \
                                 " %%" wide "mm12,%%" wide "mm13,%%" wide "mm3\n\t" instruction  \
                                 " %%" wide "mm12,%%" wide "mm13,%%" wide "mm4\n\t" instruction  \
                                 " %%" wide "mm12,%%" wide "mm13,%%" wide "mm5\n\t" instruction  \
                                 " %%" wide "mm12,%%" wide "mm13,%%" wide "mm6\n\t" instruction  \
                                 " %%" wide "mm12,%%" wide "mm13,%%" wide "mm7\n\t" instruction  \
                                 " %%" wide "mm12,%%" wide "mm13,%%" wide "mm8\n\t" instruction  \
                                 " %%" wide "mm12,%%" wide "mm13,%%" wide "mm9\n\t" instruction  \
                                 " %%" wide "mm12,%%" wide "mm13,%%" wide "mm10\n\t" instruction \
                                 " %%" wide "mm12,%%" wide "mm13,%%" wide "mm11"                 \
                     :                                                                           \
                     :                                                                           \
                     : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8",   \
                       "xmm9", "xmm10", "xmm11", "xmm12", "xmm13");                              \
    return 2000.0 * 12

inline double fused_floats_512() {
    MACHINE_LIMITS_TWELVE("vfmadd231ps", "z");
}
inline double fused_floats_256() {
    MACHINE_LIMITS_TWELVE("vfmadd231ps", "y");
}
inline double byte_products_512() {
    MACHINE_LIMITS_TWELVE("vpdpbusd", "z");
}
inline double word_products_256() {
    MACHINE_LIMITS_TWELVE("vpmaddwd", "y");
}
#undef MACHINE_LIMITS_TWELVE
#endif

// Float operations per second; a multiplication and an addition count as two.
inline double float_peak([[maybe_unused]] size_t bursts = 2000) {
#if defined(__x86_64__)
    switch (kern::x86::best_instruction_set()) {
        case kern::x86::InstructionSet::AVX512:
            return best_rate([] { return 32 * fused_floats_512(); }, bursts);
        case kern::x86::InstructionSet::AVX2:
            return best_rate([] { return 16 * fused_floats_256(); }, bursts);
        default:
            break;
    }
#endif
    return 0;
}

// Operations per second on 8-bit integers, counted likewise.
inline double int8_peak([[maybe_unused]] size_t bursts = 2000) {
#if defined(__x86_64__)
    switch (kern::x86::best_instruction_set()) {
        case kern::x86::InstructionSet::AVX512:
            return best_rate([] { return 128 * byte_products_512(); }, bursts);
        case kern::x86::InstructionSet::AVX2:
            return best_rate([] { return 32 * word_products_256(); }, bursts);
        default:
            break;
    }
#endif
    return 0;
}

// Bytes per second of reading memory once from beginning to end, in pieces of 8 MB.
inline double read_bandwidth(const std::vector<uint64_t>& memory) {
    constexpr size_t PIECE = (8 << 20) / sizeof(uint64_t);
    double best = 0;
    for (size_t first = 0; first + PIECE <= memory.size(); first += PIECE) {
        const uint64_t* words = memory.data() + first;
        best = std::max(best, best_rate(
                                  [words] {
                                      uint64_t sums[8] = {};
                                      for (size_t i = 0; i < PIECE; i += 8)
                                          for (size_t lane = 0; lane < 8; ++lane)
                                              sums[lane] |= words[i + lane];
                                      volatile uint64_t sink = 0;
                                      for (uint64_t sum : sums)
                                          sink = sink + sum;
                                      return static_cast<double>(PIECE * sizeof(uint64_t));
                                  },
                                  1));
    }
    return best;
}

}  // namespace machine_limits
