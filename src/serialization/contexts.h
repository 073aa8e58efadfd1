// What the load and dump functions of operators are given: the bytes of their record's parameters,
// and the tensors among them.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "graph/core/compute_graph.h"
#include "graph/tensor/tensor.h"
#include "serialization/file.h"
#include "serialization/graph_file_error.h"

namespace orb {

// Reads a contiguous value of the layout from the file in a way of its own, from the place where it
// begins to where the record goes on. The destination is null for a value that is only passed over.
using TensorValueLoader =
    std::function<void(void* destination, const kern::TensorLayout& layout, InputFile& file)>;

struct GraphLoadConfig {
    std::shared_ptr<ComputeGraph> graph;  // to load into; null for a new one
    // The node to use for one that the file names. Without it that is the node of the name, and one
    // that is on no CPU is refused.
    std::function<CompNode(const CompNode::Locator&)> node_mapper;
    TensorValueLoader value_loader;
    // What the tensors may take, together, whose values are not in the file.
    uint64_t max_bytes_without_value = uint64_t{1} << 30;
};

class OprLoadContext {
public:
    virtual ~OprLoadContext() = default;
    virtual void read(void* buffer, size_t bytes) = 0;
    virtual std::shared_ptr<const uint8_t> read_shared(size_t bytes) = 0;
    virtual ComputeGraph& graph() = 0;
    // The tensor of the record that comes next; without a value it has no memory yet.
    virtual std::shared_ptr<DeviceTensorND> load_tensor() = 0;
    // The same for a value that all loads of one loader share. Without memory until the graph's
    // last record has been read.
    virtual std::shared_ptr<DeviceTensorND> load_tensor_shared() = 0;
    virtual const GraphLoadConfig& config() const = 0;

    // More bytes of the field that `read` began: errors are told where it begins.
    virtual void read_more(void* buffer, size_t bytes) = 0;
    // As `load_tensor`, for a value that is needed on the host when the operator is made.
    virtual std::shared_ptr<HostTensorND> load_constant() = 0;
    // Of the tensor that was read last; empty for none.
    virtual const std::string& tensor_name() const = 0;
    virtual uint64_t bytes_left() const = 0;
    // At the field that was read last.
    virtual GraphFileError error(GraphFileFault fault) const = 0;
    [[noreturn]] void fail(GraphFileFault fault) const { throw error(fault); }
};

// How a tensor is written.
enum class TensorMethod : uint32_t {
    CONSTANT = 0,   // with its value
    PARAMETER = 1,  // the same, and listed among the parameters
    SHARED = 2,     // a parameter that the loads of a loader share
    INPUT = 3,      // no value: the tensor must not have memory
};

// Which vars' names are written.
enum class VarNames : uint32_t {
    NONE,
    OUTPUTS,  // those of the operators that make the dumped vars
    ALL,
};

struct GraphDumpConfig {
    VarNames var_names = VarNames::OUTPUTS;
    bool keep_parameter_names = true;  // inputs always keep theirs
    bool keep_priorities = false;
    bool check_names = true;  // refuse dumped vars of equal names
};

class OprDumpContext {
public:
    virtual ~OprDumpContext() = default;
    virtual void write(const void* buffer, size_t bytes) = 0;
    // An empty name is not written, but for an input, which gets one by its position.
    virtual void dump_tensor(const std::string& name, const DeviceTensorND& tensor,
                             TensorMethod method) = 0;
    virtual const GraphDumpConfig& config() const = 0;
};

}  // namespace orb
