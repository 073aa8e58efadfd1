// The file of a feature group: what the group was given, in little-endian 64-bit words and plain
// rows. docs/file-formats.md describes every byte. No state; a call owns its stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "store/smart_tensor.h"
#include "store/stream.h"

namespace vek {

// "vek" and five decimal digits.
using VersionMagic = std::string;

constexpr int current_file_version() {
    return 1;
}
VersionMagic make_version_magic(int version);
// False for a file without a header; a version that is not between 0 and `current` is an `Error`.
bool check_version(const VersionMagic& magic, int current);

// A stream behind the version, at the first byte of the body.
std::unique_ptr<InputStream> make_loader(const std::string& path, int current);
// A new file that holds the version.
std::unique_ptr<OutputStream> make_dumper(const std::string& path, int version);

// Bytes of one row.
struct GroupFileSizes {
    size_t feature_bytes;  // in the file
    size_t tag_bytes;
    size_t row_bytes;  // of a feature in memory, at most `feature_bytes`; the file has zeros for
                       // the rest
};

// Rows as they are in memory.
struct GroupFileContent {
    size_t count = 0;
    std::unique_ptr<uint64_t[]> ids;
    std::unique_ptr<uint8_t[]> features;
    std::unique_ptr<uint8_t[]> tags;  // null when there are no tags or no rows
};

// A whole group file. Sizes that differ from the given ones, and reserved words that are set, are
// errors in the name of `function`; a count that no 32-bit size can hold is std::bad_alloc.
GroupFileContent read_group_file(const std::string& path, const GroupFileSizes& sizes,
                                 const char* function);

// `ids` and `tags` point to as many records as `features` has rows.
void write_group_file(const std::string& path, const GroupFileSizes& sizes, const uint64_t* ids,
                      const SmartTensor& features, const uint8_t* tags);

}  // namespace vek
