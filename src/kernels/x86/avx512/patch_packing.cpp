#include "kernels/x86/avx512/zmm.h"
#include "kernels/x86/kernel_table.h"

#include "kernels/x86/patch_packing.inc"

namespace kern::x86 {

void avx512::pack_tap(const PatchTap& tap) {
    pack<Zmm>(tap);
}

}  // namespace kern::x86
