#include "kernels/x86/cpu.h"

#include <atomic>

#include "kernels/check.h"

namespace kern::x86 {
namespace {

InstructionSet detect() {
    __builtin_cpu_init();
    // These look at what the system saves of the registers too, not at the CPU alone.
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma"))
        return InstructionSet::NONE;
    const bool wide = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
                      __builtin_cpu_supports("avx512vnni");
    return wide ? InstructionSet::AVX512 : InstructionSet::AVX2;
}

// A function-local static, because handles are made while other files' globals are constructed.
std::atomic<InstructionSet>& chosen() {
    static std::atomic<InstructionSet> set{best_instruction_set()};
    return set;
}

}  // namespace

InstructionSet best_instruction_set() {
    static const InstructionSet best = detect();
    return best;
}

InstructionSet instruction_set() {
    return chosen().load(std::memory_order_relaxed);
}

void force_instruction_set(InstructionSet set) {
    KERN_CHECK(set != InstructionSet::NONE && set <= best_instruction_set());
    chosen().store(set, std::memory_order_relaxed);
}

}  // namespace kern::x86
