// Builds graphs from a graph file. A loader belongs to one thread at a time; what it has loaded
// lives on without it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "serialization/contexts.h"
#include "serialization/shared_tensors.h"

namespace orb {

struct GraphLoadResult {
    std::shared_ptr<ComputeGraph> graph;
    // Inputs and parameters. Of several with one name, the first; so for outputs.
    std::unordered_map<std::string, std::shared_ptr<DeviceTensorND>> tensor_map;
    std::unordered_map<std::string, GraphVar*> output_var_map;
    std::unordered_map<uint64_t, GraphVar*> output_var_map_id;  // by the id for the writer
    std::vector<GraphVar*> output_vars;                         // in the order of the file
};

class GraphLoader {
public:
    explicit GraphLoader(std::unique_ptr<InputFile> file);

    // Reads the graph that begins at the file's position, or at its start. A later load of one
    // loader gives new operators that share the parameters' tensors with the first, or with equal
    // operators when it is into the same graph. The bytes must be those of a graph file, and for a
    // later load of the same model: anything else stops the process. `inspect_graph_file` judges
    // files of strangers, and a `node_mapper` keeps their nodes from being made, of which a process
    // can have only so many. Lack of memory and what the configuration's functions throw pass
    // through; the graph has some of the operators then, and the loader can be used again.
    GraphLoadResult load(const GraphLoadConfig& config = {}, bool rewind = false);

private:
    GraphLoadResult load_or_throw(const GraphLoadConfig& config, bool rewind);

    std::unique_ptr<InputFile> m_file;
    // Of the first load.
    uint64_t m_hash = 0;
    std::optional<uint64_t> m_nr_shared;
    SharedTensorTable m_shared;
};

}  // namespace orb
