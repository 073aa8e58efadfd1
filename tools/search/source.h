// A file whose rows are searched: what is known of it beside the features, shared by the shards
// that hold its rows. Nothing changes once it is made, so any thread may use it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "features/feature_file.h"
#include "features/preparation.h"
#include "search/options.h"

namespace search {

class Source {
public:
    // A file of features or a group file. `normalize` brings the rows of a file of features to
    // length 1; a group file's stay as they are.
    Source(const std::string& path, const Options& options, bool normalize);

    const std::string& path() const { return m_path; }
    size_t dim() const { return m_dim; }
    uint64_t nr_rows() const { return m_nr_rows; }
    // What is done to rows when they are read as floats.
    const features::Preparation& preparation() const { return m_preparation; }

    uint64_t id_of(uint64_t row) const {
        return m_ids.empty() ? row : m_ids[static_cast<size_t>(row)];
    }
    bool is_wanted(uint64_t row) const {
        return m_wanted.empty() || m_wanted[static_cast<size_t>(row)];
    }

private:
    void read_group_file(const Options& options);
    void read_numbers(const Options& options);

    std::string m_path;
    size_t m_dim;
    uint64_t m_nr_rows;
    features::Preparation m_preparation;
    std::vector<uint64_t> m_ids;  // empty: row numbers
    std::vector<bool> m_wanted;   // empty: all rows
};

// The rows [first, end) of a file.
struct Slice {
    std::shared_ptr<const Source> source;
    uint64_t first, end;
};

// The same rows in the same order as `nr_parts` lists of slices, whose numbers of rows differ by at
// most one.
std::vector<std::vector<Slice>> split(const std::vector<Slice>& slices, size_t nr_parts);

// Reads rows [first, first + count) as floats, prepared, or as 8-bit integers, which no preparation
// changes. The number of elements that were -128 and became -127.
uint64_t read_rows(features::FeatureFile& file, const features::Preparation& preparation,
                   uint64_t first, size_t count, float* rows);
uint64_t read_rows(features::FeatureFile& file, const features::Preparation& preparation,
                   uint64_t first, size_t count, int8_t* rows);

}  // namespace search
