// Groups of the library made from files of features, and written to files.
#pragma once

#include <string>
#include <vector>

#include "common/output_file.h"
#include "features/ids.h"
#include "features/pieces.h"
#include "vekfind/vekfind.hpp"

namespace features {

// Rows [first, first + count) of the file into a group of floats, piece by piece. `ids` and
// `tags` hold one for each row of the whole file; where there are no ids, row numbers serve.
// `watch` is called with each piece that has gone into the group.
void insert_rows(vekfind::Group& group, FeatureFile& file, uint64_t first, uint64_t count,
                 const std::vector<uint64_t>& ids, const Tags& tags, const Preparation& preparation,
                 const PieceAction& watch = {});

// Into the file, which is then in its place, complete and on the disk.
void dump(const vekfind::Group& group, tools::OutputFile& file);

}  // namespace features
