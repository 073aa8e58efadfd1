#include "kernels/fallback/row_accumulation.h"

#include <algorithm>

#include "kernels/simd/vectorise.h"

namespace kern::fallback {
namespace {

// `Sum` is the unsigned type of C's width.
template <typename Sum>
void accumulate_rows(const MatrixMulArgs& args) {
    const auto* a = static_cast<const int8_t*>(args.a);
    const auto* b = static_cast<const int8_t*>(args.b);
    for (size_t i = 0; i < args.rows; ++i) {
        const int8_t* a_row = at_step(a, i, args.a_row);
        auto* c_row = at_step(static_cast<Sum*>(args.c), i, args.c_row);
        std::fill(c_row, c_row + args.columns, Sum{0});
        for (size_t k = 0; k < args.depth; ++k) {
            const int8_t* b_row = at_step(b, k, args.b_k);
            const int8_t factor = a_row[k];
            KERN_INDEPENDENT_LOOP
            for (size_t j = 0; j < args.columns; ++j)
                c_row[j] = static_cast<Sum>(c_row[j] + static_cast<Sum>(factor * b_row[j]));
        }
    }
}

}  // namespace

void accumulate_rows_int16(const MatrixMulArgs& args) {
    accumulate_rows<uint16_t>(args);
}

void accumulate_rows_int32(const MatrixMulArgs& args) {
    accumulate_rows<uint32_t>(args);
}

}  // namespace kern::fallback
