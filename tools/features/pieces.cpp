#include "features/pieces.h"

#include <algorithm>
#include <vector>

namespace features {

void for_each_span(uint64_t first, uint64_t count, size_t max_rows,
                   const std::function<void(uint64_t first, size_t count)>& action) {
    for (const uint64_t end = first + count; first < end;) {
        const auto nr = static_cast<size_t>(std::min<uint64_t>(max_rows, end - first));
        action(first, nr);
        first += nr;
    }
}

void for_each_piece(FeatureFile& file, uint64_t first, uint64_t count,
                    const Preparation& preparation, const PieceAction& action) {
    const size_t dim = file.dim();
    std::vector<float> rows;
    for_each_span(first, count, rows_per_piece(dim * sizeof(float)), [&](uint64_t row, size_t nr) {
        rows.resize(nr * dim);
        read_floats(file, row, nr, rows.data());
        prepare(rows.data(), nr, dim, preparation, file.path(), row);
        action(rows.data(), nr, row);
    });
}

void for_each_piece(FeatureFile& file, const Preparation& preparation, const PieceAction& action) {
    for_each_piece(file, 0, file.nr_rows(), preparation, action);
}

}  // namespace features
