// A group file, read without the library: docs/file-formats.md describes it. Refused is what the
// library refuses, as a BadFile with a byte; memory is taken only for what is asked for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/input_file.h"
#include "features/ids.h"

namespace features {

constexpr uint64_t MAX_GROUP_ROWS = 536870911;  // a file with more does not load

class GroupFile {
public:
    // Reads all but ids, features and tags.
    explicit GroupFile(const std::string& path);

    const std::string& path() const { return m_file.path(); }
    uint64_t file_bytes() const { return m_file.size(); }
    // A row has dim() floats, and bytes behind them where its size is no multiple of 4.
    uint32_t feature_size() const { return m_feature_size; }
    size_t dim() const { return m_feature_size / sizeof(float); }
    uint32_t tag_size() const { return m_tag_size; }
    uint64_t nr_rows() const { return m_nr_rows; }
    // Where the features of the first row begin.
    uint64_t features_offset() const;

    // All of them. Refuses invalid ids and equal ones.
    std::vector<uint64_t> read_ids() const;
    // Of the rows [first, first + count), row after row; any thread may read.
    void read_features(uint64_t first, size_t count, float* rows) const;
    void read_tags(uint64_t first, size_t count, uint8_t* tags) const;
    Tags read_all_tags() const;

private:
    // The bytes of the version, which may be missing.
    uint64_t read_version() const;

    tools::InputFile m_file;
    uint64_t m_ids_offset = 0;
    uint32_t m_feature_size = 0, m_tag_size = 0;
    uint64_t m_nr_rows = 0;
};

// The length of a file that a dump writes.
uint64_t group_file_bytes(uint64_t nr_rows, size_t dim, uint32_t tag_size);

}  // namespace features
