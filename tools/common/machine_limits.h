// What this machine can do at most, measured: multiply-adds per second of the widest instructions
// that the library uses here, and bytes read per second. Zero where the instructions are unknown.
// Each call takes the best of many short bursts, since other work on the machine only ever slows
// one down. The CPU itself is asked for what it has, so that programs which see only the public
// header can use this as well as the benchmarks.
#pragma once

#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

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

// The sets that the library has kernels for.
inline bool has_avx2() {
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}
inline bool has_avx512() {
    return has_avx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512vnni");
}
#endif

// Float operations per second; a multiplication and an addition count as two.
inline double float_peak([[maybe_unused]] size_t bursts = 2000) {
#if defined(__x86_64__)
    if (has_avx512())
        return best_rate([] { return 32 * fused_floats_512(); }, bursts);
    if (has_avx2())
        return best_rate([] { return 16 * fused_floats_256(); }, bursts);
#endif
    return 0;
}

// Operations per second on 8-bit integers, counted likewise.
inline double int8_peak([[maybe_unused]] size_t bursts = 2000) {
#if defined(__x86_64__)
    if (has_avx512())
        return best_rate([] { return 128 * byte_products_512(); }, bursts);
    if (has_avx2())
        return best_rate([] { return 32 * word_products_256(); }, bursts);
#endif
    return 0;
}

// Fresh memory of nobody, in huge pages where the system has them.
using Memory = std::unique_ptr<void, void (*)(void*)>;
inline Memory fresh_memory(size_t bytes) {
    constexpr size_t HUGE_PAGE = 2 << 20;
    const size_t allocated = (bytes + HUGE_PAGE - 1) / HUGE_PAGE * HUGE_PAGE;
    Memory memory(std::aligned_alloc(HUGE_PAGE, allocated), std::free);
    if (!memory)
        throw std::bad_alloc();
    madvise(memory.get(), allocated, MADV_HUGEPAGE);
    return memory;
}

// Bytes per second of reading so many bytes once from beginning to end. `bytes` is cut to whole
// cache lines.
inline double read_bandwidth(size_t bytes) {
    constexpr size_t LINE = 64;
    constexpr uint64_t IN_ALL = uint64_t{4} << 30;
    const Memory memory = fresh_memory(bytes);
    std::memset(memory.get(), 1, bytes);
    const auto* words = static_cast<const uint64_t*>(memory.get());
    constexpr size_t LANES = LINE / sizeof(uint64_t);
    const auto read_all = [words, lines = bytes / LINE] {
        uint64_t sums[LANES] = {};
        for (size_t line = 0; line < lines; ++line)
            for (size_t lane = 0; lane < LANES; ++lane)
                sums[lane] |= words[line * LANES + lane];
        volatile uint64_t sink = 0;
        for (uint64_t sum : sums)
            sink = sink + sum;
        return static_cast<double>(lines * LINE);
    };
    return best_rate(read_all, static_cast<size_t>(std::max<uint64_t>(IN_ALL / (bytes + 1), 8)));
}

}  // namespace machine_limits
