#include "kernels/x86/avx2/vec.h"
#include "kernels/x86/kernel_table.h"

#include "kernels/x86/panel_product.inc"

namespace kern::x86 {

void avx2::panel_product(const PanelProduct& product) {
    multiply_panel(product);
}

}  // namespace kern::x86
