#include "vekfind_mpi/distinct.h"

#include <algorithm>

#include "vekfind/vekfind.h"

namespace mpi {

namespace {

constexpr uint64_t NONE = VEK_INVALID_ID_VALUE;

// The lowest number that is there twice.
uint64_t find_repeated(std::vector<uint64_t> numbers) {
    std::sort(numbers.begin(), numbers.end());
    const auto repeated = std::adjacent_find(numbers.begin(), numbers.end());
    return repeated == numbers.end() ? NONE : *repeated;
}

}  // namespace

void require_distinct(const Ranks& ranks, const std::vector<uint64_t>& ids) {
    // Equal ids meet at one rank. Fibonacci hashing (Knuth, The Art of Computer Programming, volume
    // 3, section 6.4) spreads consecutive ones.
    const auto owner_of = [&](uint64_t id) {
        const uint64_t hash = id * 0x9E3779B97F4A7C15 >> 32;
        return static_cast<int>(hash * static_cast<uint64_t>(ranks.size()) >> 32);
    };
    uint64_t repeated = NONE;
    std::vector<uint64_t> met = ranks.exchange(ids, owner_of);
    ranks.together([&] { repeated = find_repeated(std::move(met)); });
    repeated = ranks.minimum(repeated);
    if (repeated == NONE)
        return;
    const bool is_here = std::find(ids.begin(), ids.end(), repeated) != ids.end();
    const auto rank = static_cast<uint64_t>(ranks.rank());
    const uint64_t first = ranks.minimum(is_here ? rank : UINT64_MAX);
    const uint64_t last = ranks.maximum(is_here ? rank : 0);
    const std::string where = first == last ? "twice in the shard of rank " + std::to_string(first)
                                            : "in the shards of ranks " + std::to_string(first) +
                                                  " and " + std::to_string(last);
    throw AgreedFailure("id " + std::to_string(repeated) + " stands " + where, 1);
}

}  // namespace mpi
