// Opening and inspecting the file that a command was given, and the words for what is in it.
#pragma once

#include <memory>
#include <string>

#include "common/json.h"
#include "serialization/graph_inspector.h"
#include "vekgraph/commands.h"

namespace vekgraph {

// Nothing but a regular file can be opened: the commands read it more than once.
std::unique_ptr<orb::InputFile> open_input(const std::string& path);

// The nodes are loaded by whoever loads the graph, not by making the configuration.
orb::GraphLoadConfig load_config(const FileOptions& options);

// Throws BadFile.
orb::GraphFileFacts inspect_strictly(const FileOptions& options);
// What is there up to the first operator that is not available, whatever nodes it is for.
orb::GraphFileFacts inspect_what_is_known(const FileOptions& options);

// Of the operator for people.
std::string title_of(const orb::OperatorRecord* record);
std::string title_of(const orb::GraphOperator& op);

bool is_input(const orb::TensorFacts& tensor);
// Constants have no name.
bool is_parameter(const orb::TensorFacts& tensor);

// "name", "dtype", "shape", "bytes" and "node", into the object that was begun.
void write_tensor_fields(tools::JsonWriter& json, const orb::TensorHeader& tensor);

}  // namespace vekgraph
