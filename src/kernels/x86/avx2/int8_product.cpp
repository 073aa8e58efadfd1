#include "kernels/x86/avx2/bytes.h"
#include "kernels/x86/kernel_table.h"

#include "kernels/x86/int8_product.inc"

namespace kern::x86 {

void avx2::int8_product(const Product& product) {
    multiply(product);
}

}  // namespace kern::x86
