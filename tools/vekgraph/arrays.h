// The arrays that go into a graph and come out of it, as .npy files.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/npy.h"
#include "graph/tensor/tensor.h"
#include "serialization/graph_inspector.h"

namespace vekgraph {

struct InputArray {
    std::string name;  // of the graph's input
    kern::DType dtype;
    npy::Array array;
};

// One for each input of the file. `words` are NAME=FILE. The rank and lengths are left to the
// graph.
std::vector<InputArray> read_inputs(const orb::GraphFileFacts& facts,
                                    const std::vector<std::string>& words);

// The array as a tensor of the host.
orb::HostTensorND tensor_of(const InputArray& input);

// What a run has given for one output. Types of less than a byte come without their elements.
struct OutputArray {
    kern::DType dtype;
    kern::TensorShape shape;
    std::vector<uint8_t> bytes;
};

OutputArray array_of(const orb::DeviceTensorND& value);

// How .npy files call the elements; nothing for types of less than a byte.
std::optional<npy::ElementType> element_type_of(kern::DType dtype);

// NAME.npy for each output, in their order, with nothing in the names that a shell or a file system
// minds, and output-INDEX.npy for those that have none.
std::vector<std::string> output_file_names(const std::vector<std::string>& names);

}  // namespace vekgraph
