#include "kernels/x86/avx2/ymm.h"
#include "kernels/x86/avx512/zmm.h"
#include "kernels/x86/kernel_table.h"

#include "kernels/x86/panel_product.inc"

namespace kern::x86 {

// The last panel of an image may have few columns: narrow vectors do not compute the others.
void avx512::panel_product(const PanelProduct& product) {
    constexpr size_t REGISTERS = 32;
    if (product.columns > 3 * Ymm::LANES)
        multiply_panel<Zmm, 2, REGISTERS>(product);
    else if (product.columns > 2 * Ymm::LANES)
        multiply_panel<Ymm, 3, REGISTERS>(product);
    else if (product.columns > Ymm::LANES)
        multiply_panel<Ymm, 2, REGISTERS>(product);
    else
        multiply_panel<Ymm, 1, REGISTERS>(product);
}

}  // namespace kern::x86
