// Which vector instructions this level uses in this process. Chosen once from what the CPU and the
// system have; any thread may ask.
#pragma once

namespace kern::x86 {

// Each set holds what the ones before it hold.
enum class InstructionSet {
    NONE,
    AVX2,    // with FMA
    AVX512,  // F, BW, VL and DQ, with VNNI
};

// The widest set that the CPU has.
InstructionSet best_instruction_set();
// The set that operators made from now on use: the best one, or the forced one.
InstructionSet instruction_set();
// For tests: a set that the CPU lacks, or NONE, stops the process.
void force_instruction_set(InstructionSet set);

}  // namespace kern::x86
