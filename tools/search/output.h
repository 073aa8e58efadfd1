// A result as a table for people and as files for programs.
#pragma once

#include <memory>
#include <string>

#include "common/output_file.h"
#include "search/result.h"

namespace search {

// BadUse for a name that `write_result` does not know.
void require_known_format(const std::string& path);

// Opened before the search, too: what cannot be written is known before the work. Null for the
// standard output, which an empty path means.
std::unique_ptr<tools::OutputFile> open_output(const std::string& path);

// In the format of the file's name: .csv, .json, .npz, .ivecs, .txt for the table, which is also
// what is printed. The file is then in its place. Scores are left out where there are no constants
// that they would follow from.
void write_result(tools::OutputFile* file, const Result& result, bool has_scores);

}  // namespace search
