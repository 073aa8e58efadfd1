#include "kernels/x86/avx512/vec.h"
#include "kernels/x86/kernel_table.h"

#include "kernels/x86/float_product.inc"

namespace kern::x86 {

void avx512::float_product(const Product& product) {
    multiply(product);
}

}  // namespace kern::x86
