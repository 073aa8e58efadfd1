#include "kernels/x86/kernel_table.h"

#include "kernels/check.h"

namespace kern::x86 {

const KernelTable& kernel_table(InstructionSet set) {
    static constexpr KernelTable AVX2{"avx2",
                                      16,
                                      &avx2::float_product,
                                      &avx2::int8_product,
                                      &avx2::sum_squares,
                                      &avx2::panel_product,
                                      &avx2::pack_tap,
                                      &avx2::convolve_plane};
    static constexpr KernelTable AVX512{"avx512",
                                        32,
                                        &avx512::float_product,
                                        &avx512::int8_product,
                                        &avx2::sum_squares,
                                        &avx512::panel_product,
                                        &avx512::pack_tap,
                                        &avx512::convolve_plane};
    KERN_CHECK(set != InstructionSet::NONE);
    return set == InstructionSet::AVX512 ? AVX512 : AVX2;
}

}  // namespace kern::x86
