#include "kernels/x86/avx2/ymm.h"
#include "kernels/x86/kernel_table.h"

#include "kernels/x86/patch_packing.inc"

namespace kern::x86 {

void avx2::pack_tap(const PatchTap& tap) {
    pack<Ymm>(tap);
}

}  // namespace kern::x86
