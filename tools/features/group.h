// Groups of the library made from files of features, and written to files.
#pragma once

#include <functional>
#include <string>

#include "features/feature_file.h"
#include "features/ids.h"
#include "features/preparation.h"
#include "vekfind/vekfind.hpp"

namespace features {

// Called with each piece of rows, prepared, that has gone into a group.
using PieceWatcher = std::function<void(const float* rows, size_t count)>;

// Rows [first, first + count) of the file into a group of floats, piece by piece. `ids` and
// `tags` hold one for each row of the whole file; where there are no ids, row numbers serve.
void insert_rows(vekfind::Group& group, FeatureFile& file, uint64_t first, uint64_t count,
                 const std::vector<uint64_t>& ids, const Tags& tags, const Preparation& preparation,
                 const PieceWatcher& watcher = {});

// Takes the place of an old file when it is complete and on the disk.
void dump(const vekfind::Group& group, const std::string& path);

}  // namespace features
