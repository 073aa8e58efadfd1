// Numbers beside the rows: ids and tags, from files of their own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace features {

// One for each row, all different and none VEK_INVALID_ID_VALUE: an .npy of any integer type, or a
// text file with one number a line. BadFile otherwise, with the row.
std::vector<uint64_t> read_ids(const std::string& path, uint64_t nr_rows);

// The check that the ids may stand in one group. `path` is the file that they are from.
void check_ids(const std::vector<uint64_t>& ids, const std::string& path);

struct Tags {
    uint32_t size = 0;           // bytes of a tag; 0 for no tags
    std::vector<uint8_t> bytes;  // row after row
};

// One for each row: an .npy of shape (rows,) and any integer type, whose little-endian bytes are
// the tags; one of bytes and shape (rows, size); or a text file with one number a line, which
// become tags of the 1, 2, 4 or 8 bytes that hold them all.
Tags read_tags(const std::string& path, uint64_t nr_rows);

}  // namespace features
