// All rows that one process searches, held in shards that are loaded and searched at the same time,
// a thread each. T is float or int8_t. One thread at a time.
#pragma once

#include <memory>
#include <vector>

#include "search/shard.h"

namespace search {

template <typename T>
class Collection {
public:
    // At least one shard; of fewer rows than shards some are empty.
    Collection(const std::vector<Slice>& slices, size_t nr_shards,
               const vekfind::Settings& settings);

    uint64_t nr_rows() const;
    uint64_t nr_changed() const;  // elements: -128 became -127

    // Of each shard's best k the best k.
    Result search(const T* queries, size_t nr_query, size_t k, float threshold) const;

private:
    std::vector<std::unique_ptr<Shard<T>>> m_shards;
};

}  // namespace search
