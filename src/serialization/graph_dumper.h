// Writes a graph to a file. A dumper belongs to one thread at a time.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "serialization/contexts.h"

namespace orb {

struct GraphDumpResult {
    size_t nr_operators = 0;
    uint64_t total_bytes = 0;
    uint64_t tensor_value_bytes = 0;
    std::vector<std::string> inputs;
    std::vector<std::string> parameters;  // empty names for those that have none
};

class GraphDumper {
public:
    explicit GraphDumper(std::unique_ptr<OutputFile> file);

    // Everything that the vars need, and which vars they are. The vars are of one graph and not
    // volatile; an operator that has no record stops the process. What the system refuses to write
    // is a `GraphFileError`, and the file is of no use then.
    GraphDumpResult dump(const std::vector<GraphVar*>& output_vars,
                         const GraphDumpConfig& config = {});

private:
    std::unique_ptr<OutputFile> m_file;
};

}  // namespace orb
