// What the files that are compiled for one instruction set offer to the rest of this level: plain
// functions over plain data. Those files include this header, the compiler's own and nothing else:
// an inline function of a shared header could be emitted there with instructions that not every
// CPU has, and the linker might keep that copy for all.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/x86/cpu.h"

namespace kern::x86 {

// C = A x transposed B over lines that are contiguous along k. Steps are in elements. Borrows all
// memory.
struct Product {
    const void* a;
    ptrdiff_t a_step;
    size_t a_count;
    const void* b;
    ptrdiff_t b_step;
    size_t b_count;
    size_t depth;
    void* c;  // row i, column j: line i of A times line j of B
    ptrdiff_t c_row;
    void* workspace;  // aligned to 64 bytes; see `packed_lines` for its size
};

// 16 partial sums make up one element of a float product: partial l adds the products of
// k = l, l + 16, ... in that order, each by a fused multiply-add, to zero. The sum of the partials
// is a tree: l and l + 8 are added for every l < 8, of these eight l and l + 4, then 2, then 1.
// All kernels of all sets give these bits.
constexpr size_t NR_PARTIALS = 16;

// Lines of A that are packed side by side, and how many of them are packed at a time: as many as
// the second-level cache holds beside the result.
constexpr size_t A_GROUP = 32;
constexpr size_t A_BLOCK_BYTES = 256 * 1024;
constexpr size_t a_block_lines(size_t depth) {
    const size_t lines = depth == 0 ? A_GROUP : A_BLOCK_BYTES / sizeof(float) / depth;
    return lines < A_GROUP ? A_GROUP : lines - lines % A_GROUP;
}

struct KernelTable {
    const char* name;
    void (*float_product)(const Product& product);
};

// Stops the process on NONE.
const KernelTable& kernel_table(InstructionSet set);

namespace avx2 {
void float_product(const Product& product);
}  // namespace avx2

namespace avx512 {
void float_product(const Product& product);
}  // namespace avx512

}  // namespace kern::x86
