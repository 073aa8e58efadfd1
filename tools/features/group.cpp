#include "features/group.h"

#include <algorithm>
#include <numeric>

#include "common/failure.h"
#include "common/output_file.h"
#include "features/group_file.h"

namespace features {

void insert_rows(vekfind::Group& group, FeatureFile& file, uint64_t first, uint64_t count,
                 const std::vector<uint64_t>& ids, const Tags& tags, const Preparation& preparation,
                 const PieceWatcher& watcher) {
    const size_t dim = file.dim();
    const auto piece_rows =
        static_cast<size_t>(std::min<uint64_t>(count, rows_per_piece(dim * sizeof(float))));
    std::vector<float> rows(piece_rows * dim);
    std::vector<uint64_t> numbers(piece_rows);
    for (uint64_t row = first; row < first + count;) {
        const auto nr = static_cast<size_t>(std::min<uint64_t>(piece_rows, first + count - row));
        read_floats(file, row, nr, rows.data());
        prepare(rows.data(), nr, dim, preparation, file.path(), row);
        std::iota(numbers.begin(), numbers.end(), row);
        const auto place = static_cast<size_t>(row);
        group.insert({ids.empty() ? numbers.data() : ids.data() + place, nr},
                     {rows.data(), nr * dim},
                     {tags.bytes.data() + place * tags.size, nr * tags.size});
        row += nr;
        if (watcher)
            watcher(rows.data(), nr);
    }
}

void dump(const vekfind::Group& group, const std::string& path) {
    const vekfind::Settings& settings = group.settings();
    tools::OutputFile file(path);
    file.write_by_name([&](const std::string& name) {
        try {
            group.dump(name);
        } catch (const vekfind::Error&) {
            throw tools::BadFile(path + ": cannot be written; is the disk full?");
        }
    });
    file.commit(group_file_bytes(group.size(), settings.dim, settings.tag_size));
}

}  // namespace features
