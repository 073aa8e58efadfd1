// Rows a piece at a time, so that memory stays at one piece: as floats, prepared.
#pragma once

#include <functional>

#include "features/feature_file.h"
#include "features/preparation.h"

namespace features {

// Splits rows [first, first + count) into spans of at most so many.
void for_each_span(uint64_t first, uint64_t count, size_t max_rows,
                   const std::function<void(uint64_t first, size_t count)>& action);

// `first` is the number in the file of the first of these rows, which may be changed.
using PieceAction = std::function<void(float* rows, size_t count, uint64_t first)>;

// Rows [first, first + count), in order.
void for_each_piece(FeatureFile& file, uint64_t first, uint64_t count,
                    const Preparation& preparation, const PieceAction& action);
// All rows.
void for_each_piece(FeatureFile& file, const Preparation& preparation, const PieceAction& action);

}  // namespace features
