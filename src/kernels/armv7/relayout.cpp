#include "kernels/armv7/relayout.h"

#include <algorithm>
#include <cstring>

#include "kernels/simd/f32x4.h"

namespace kern::armv7 {
namespace {

using fallback::CopyAxis;
using fallback::CopyWalk;

constexpr size_t BLOCK = 4;
// Columns of `src` that are moved together: they fill whole cache lines of both tensors.
constexpr size_t PANEL = 16;

const float* src_at(const Transposition& matrix, const float* src, size_t row, size_t column) {
    return src + static_cast<ptrdiff_t>(row) * matrix.src_row_step + column;
}
float* dst_at(const Transposition& matrix, float* dst, size_t row, size_t column) {
    return dst + static_cast<ptrdiff_t>(column) * matrix.dst_column_step + row;
}

void move_block(const Transposition& matrix, size_t row, size_t column, const float* src,
                float* dst) {
    simd::F32x4 r0 = simd::load(src_at(matrix, src, row, column));
    simd::F32x4 r1 = simd::load(src_at(matrix, src, row + 1, column));
    simd::F32x4 r2 = simd::load(src_at(matrix, src, row + 2, column));
    simd::F32x4 r3 = simd::load(src_at(matrix, src, row + 3, column));
    simd::transpose(r0, r1, r2, r3);
    simd::store(dst_at(matrix, dst, row, column), r0);
    simd::store(dst_at(matrix, dst, row, column + 1), r1);
    simd::store(dst_at(matrix, dst, row, column + 2), r2);
    simd::store(dst_at(matrix, dst, row, column + 3), r3);
}

// The elements of the rows and columns from the given ones on, one by one.
void move_elements(const Transposition& matrix, size_t first_row, size_t first_column,
                   size_t end_column, const float* src, float* dst) {
    for (size_t column = first_column; column < end_column; ++column)
        for (size_t row = first_row; row < matrix.rows; ++row)
            std::memcpy(dst_at(matrix, dst, row, column), src_at(matrix, src, row, column),
                        sizeof(float));
}

void transpose(const Transposition& matrix, const float* src, float* dst) {
    const size_t block_rows = matrix.rows / BLOCK * BLOCK;
    const size_t block_columns = matrix.columns / BLOCK * BLOCK;
    for (size_t panel = 0; panel < block_columns; panel += PANEL) {
        const size_t panel_end = std::min(panel + PANEL, block_columns);
        for (size_t row = 0; row < block_rows; row += BLOCK)
            for (size_t column = panel; column < panel_end; column += BLOCK)
                move_block(matrix, row, column, src, dst);
    }
    move_elements(matrix, block_rows, 0, block_columns, src, dst);
    move_elements(matrix, 0, block_columns, matrix.columns, src, dst);
}

}  // namespace

std::optional<Transposition> Transposition::plan(const TensorLayout& src, const TensorLayout& dst) {
    if (dst.is_empty() || dst.dtype.element_bytes() != sizeof(float))
        return std::nullopt;
    const auto walk = CopyWalk::plan(src, dst);
    if (!walk || walk->nr_axes() < 2)
        return std::nullopt;
    const auto match = [&](const CopyAxis& column_axis,
                           const CopyAxis& row_axis) -> std::optional<Transposition> {
        if (column_axis.src_stride != 1 || row_axis.dst_stride != 1 ||
            std::min(column_axis.length, row_axis.length) < BLOCK)
            return std::nullopt;
        return Transposition{*walk, row_axis.length, column_axis.length, row_axis.src_stride,
                             column_axis.dst_stride};
    };
    const auto result = match((*walk)[1], (*walk)[0]);
    return result ? result : match((*walk)[0], (*walk)[1]);
}

void RelayoutImpl::exec(const RawTensor& src, const RawTensor& dst, KernelHandle* src_handle) {
    check_exec(src.layout, dst.layout);
    const auto matrix = Transposition::plan(src.layout, dst.layout);
    if (!matrix)
        return fallback::RelayoutImpl::exec(src, dst, src_handle);
    dispatch([matrix = *matrix, from = src.ptr<const float>(), to = dst.ptr<float>()] {
        matrix.walk.for_each_from(2, [&](ptrdiff_t src_offset, ptrdiff_t dst_offset) {
            transpose(matrix, from + src_offset, to + dst_offset);
        });
    });
}

}  // namespace kern::armv7
