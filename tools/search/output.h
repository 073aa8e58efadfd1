// A result as a table for people and as files for programs.
#pragma once

#include <string>

#include "search/result.h"

namespace search {

// BadUse for a name that `write_result` does not know, so that it is known before a long search.
void require_known_format(const std::string& path);

// To a new or replaced file, in the format of its name: .csv, .json, .npz, .ivecs, .txt for the
// table. An empty path is the standard output and the table. Scores are left out where there are no
// constants that they would follow from.
void write_result(const std::string& path, const Result& result, bool has_scores);

}  // namespace search
