#include "kernels/x86/avx2/ymm.h"
#include "kernels/x86/kernel_table.h"

#include "kernels/x86/panel_product.inc"

namespace kern::x86 {

void avx2::panel_product(const PanelProduct& product) {
    constexpr size_t REGISTERS = 16;
    if (product.columns > Ymm::LANES)
        multiply_panel<Ymm, 2, REGISTERS>(product);
    else
        multiply_panel<Ymm, 1, REGISTERS>(product);
}

}  // namespace kern::x86
