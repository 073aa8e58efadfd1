// What is in a graph file, found out without building anything of it: for tools, and for whoever
// must judge a file before it is loaded.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "serialization/graph_file_parser.h"

namespace orb {

// A tensor record. An input that has a value is a PARAMETER.
struct TensorFacts {
    TensorHeader header;
    TensorMethod method = TensorMethod::CONSTANT;
    uint64_t operator_index = 0;
};

struct OperatorFacts {
    RecordHead head;
    RecordTail tail;
    uint64_t first_output = 0;  // position in the var table
    size_t nr_outputs = 0;
};

struct GraphFileFacts {
    GraphFileHeader header;
    std::vector<OperatorFacts> operators;
    std::vector<TensorFacts> tensors;
    std::vector<OutputRecord> outputs;
    // The operator that ended the inspection, because the length of its record cannot be known:
    // nothing stands here of it and of what follows.
    std::optional<RecordHead> stopped_at;
    // Of the graph in the file, and where its outputs follow; 0 where the inspection stopped.
    uint64_t begin = 0, end = 0, operators_end = 0;

    // The name that the file gives a var; empty for none.
    std::string var_name(uint64_t var) const;
};

// From the file's position on. Throws `GraphFileError`. Of the configuration only what concerns
// nodes and values counts. With `allow_unknown` the inspection ends at an operator that cannot be
// made.
GraphFileFacts inspect_graph_file(InputFile& file, const GraphLoadConfig& config = {},
                                  bool allow_unknown = false);

// The digest of the graph's bytes, which a writer of this library has put into the header as the
// hash. Nothing for files of other writers. The file is read anew.
std::optional<uint64_t> graph_digest(InputFile& file, const GraphFileFacts& facts);

}  // namespace orb
