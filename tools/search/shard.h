// A group over a part of the rows, and the way back from a row of the group to the file that it
// came from: the group's ids are places in the shard. T is float or int8_t. One thread at a time.
#pragma once

#include <memory>
#include <vector>

#include "search/result.h"
#include "search/source.h"
#include "vekfind/vekfind.hpp"

namespace search {

template <typename T>
class Shard {
public:
    // Reads the rows of all slices that are wanted into the group. Of the settings the constants
    // and the dimensions count.
    Shard(const std::vector<Slice>& slices, const vekfind::Settings& settings);

    uint64_t nr_rows() const { return m_group.size(); }
    uint64_t nr_changed() const { return m_nr_changed; }  // elements: -128 became -127

    // For each query the best k rows of the library's search, with its scores, in the order of
    // their distances computed anew from the rows in the file.
    Result search(const T* queries, size_t nr_query, size_t k, float threshold) const;

private:
    // The row at `place` of the shard is row `place - begin + slice.first` of the slice's file.
    struct Part {
        Slice slice;
        uint64_t begin;
        std::unique_ptr<features::FeatureFile> file;
    };

    void load(Part& part);
    const Part& part_of(uint64_t place) const;

    vekfind::Group m_group;
    std::vector<Part> m_parts;
    uint64_t m_nr_changed = 0;
};

}  // namespace search
