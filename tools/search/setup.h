// What is settled before rows are read: which files, and how distances become similarities.
#pragma once

#include <string>
#include <vector>

#include "search/options.h"
#include "search/source.h"
#include "vekfind/vekfind.hpp"

namespace search {

// How rows and queries are compared: the options, and where they are silent what stands beside the
// file.
struct Comparison {
    float scale = 1, bias = 0;
    bool has_scores = false;  // without constants there are distances only
    bool normalize = false;
    uint64_t dim = 0;

    vekfind::Settings settings() const;
};

// What two shards must have in common to be searched as one: empty if they have, or what differs.
std::string difference(const Comparison& a, const Comparison& b);

struct Setup {
    Comparison comparison;
    std::vector<Slice> slices;  // each file as a whole
};

// At least one file; of several each is a group file.
Setup open_sources(const std::vector<std::string>& paths, const Options& options);

// Lines on the standard error, where the first rows are far from the origin, and where elements
// were changed.
void warn_if_far(const Source& source);
void warn_of_changes(const char* program, uint64_t nr_changed);

// As many queries as one call is to search with: a matrix product is fast with many, and their
// matches must fit into memory beside the result.
size_t queries_at_once(uint64_t k);

// The prepared queries, read as the rows were. T is float or int8_t.
template <typename T>
class Queries {
public:
    // BadFile for other dimensions than those of the rows.
    Queries(const std::string& path, const Options& options, const Comparison& comparison);

    size_t size() const { return static_cast<size_t>(m_file->nr_rows()); }
    std::vector<T> read(size_t first, size_t count);
    uint64_t nr_changed() const { return m_nr_changed; }  // elements: -128 became -127

private:
    std::unique_ptr<features::FeatureFile> m_file;
    features::Preparation m_preparation;
    uint64_t m_nr_changed = 0;
};

}  // namespace search
