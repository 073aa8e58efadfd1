// The check that no id stands in two shards.
#pragma once

#include <vector>

#include "vekfind_mpi/ranks.h"

namespace mpi {

// Called by all ranks with the ids of their shards. All throw an AgreedFailure that names an id
// which stands twice, and where. Takes 8 bytes of memory a row beside the ids, and sends as much.
void require_distinct(const Ranks& ranks, const std::vector<uint64_t>& ids);

}  // namespace mpi
