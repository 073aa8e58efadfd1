// Relayout that transposes matrices of 4-byte elements in blocks of 4 x 4; other copies run at the
// fallback level.
#pragma once

#include <optional>

#include "kernels/fallback/copy_walk.h"
#include "kernels/fallback/relayout.h"

namespace kern::armv7 {

// A matrix that lies in `src` with contiguous rows and in `dst` with contiguous columns, at each
// position of the walk's axes but the two innermost. Its elements are moved as bits, whatever their
// dtype.
struct Transposition {
    fallback::CopyWalk walk;
    size_t rows, columns;
    ptrdiff_t src_row_step, dst_column_step;

    // Nothing for other copies and for matrices without room for a block.
    static std::optional<Transposition> plan(const TensorLayout& src, const TensorLayout& dst);
};

class RelayoutImpl final : public fallback::RelayoutImpl {
public:
    using fallback::RelayoutImpl::RelayoutImpl;
    void exec(const RawTensor& src, const RawTensor& dst, KernelHandle* src_handle) override;
};

}  // namespace kern::armv7
