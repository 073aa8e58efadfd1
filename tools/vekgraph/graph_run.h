// Loads a graph and runs it, in the child process.
#pragma once

#include <string>
#include <vector>

#include "vekgraph/arrays.h"
#include "vekgraph/child.h"
#include "vekgraph/commands.h"
#include "vekgraph/profile.h"

namespace vekgraph {

struct RunResult {
    double load_seconds = 0;
    double first_seconds = 0;          // with the planning of memory
    std::vector<double> more_seconds;  // of each further run, ascending
    bool was_recorded = false;
    std::vector<OutputArray> outputs;  // of the first run
    std::vector<ProfileRow> profile;   // of the further runs, or of the only one
};

RunResult run_graph(const FileOptions& file, const RunOptions& options,
                    const std::vector<InputArray>& inputs, ChildProgress& progress);

}  // namespace vekgraph
