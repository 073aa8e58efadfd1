// The classes of rows, from a file beside them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace calibration {

// The class of each row, numbered from 0 on: an .npy of any integer type and one axis, or a text
// file whose lines are the labels, numbers or names. BadFile where there is not one for each row.
std::vector<uint32_t> read_labels(const std::string& path, uint64_t nr_rows);

}  // namespace calibration
