#include "features/group.h"

#include <numeric>

#include "common/failure.h"
#include "features/group_file.h"

namespace features {

void insert_rows(vekfind::Group& group, FeatureFile& file, uint64_t first, uint64_t count,
                 const std::vector<uint64_t>& ids, const Tags& tags, const Preparation& preparation,
                 const PieceAction& watch) {
    std::vector<uint64_t> numbers;
    for_each_piece(file, first, count, preparation, [&](float* rows, size_t nr, uint64_t row) {
        numbers.resize(nr);
        std::iota(numbers.begin(), numbers.end(), row);
        const auto place = static_cast<size_t>(row);
        group.insert({ids.empty() ? numbers.data() : ids.data() + place, nr},
                     {rows, nr * file.dim()},
                     {tags.bytes.data() + place * tags.size, nr * tags.size});
        if (watch)
            watch(rows, nr, row);
    });
}

void dump(const vekfind::Group& group, tools::OutputFile& file) {
    file.write_by_name([&](const std::string& name) {
        try {
            group.dump(name);
        } catch (const vekfind::Error&) {
            throw tools::BadFile(file.path() + ": cannot be written; is the disk full?");
        }
    });
    const vekfind::Settings& settings = group.settings();
    file.commit(group_file_bytes(group.size(), settings.dim, settings.tag_size));
}

}  // namespace features
