// The parameters that the loads of one loader share.
#pragma once

#include <cstdlib>
#include <map>
#include <memory>
#include <vector>

#include "graph/tensor/tensor.h"

namespace orb {

// Tensors by the position of their record, once per node.
class SharedTensorTable {
public:
    // Null for none.
    std::shared_ptr<DeviceTensorND> find(uint64_t index, CompNode node) const;
    void add(uint64_t index, CompNode node, std::shared_ptr<DeviceTensorND> tensor);

private:
    using ByNode = std::vector<std::pair<CompNode, std::shared_ptr<DeviceTensorND>>>;
    std::vector<ByNode> m_records;
};

// The values that one load puts on one node: gathered on the host as they are read, then copied
// over at once into one storage, of which each tensor gets its part.
class ParameterBlock {
public:
    explicit ParameterBlock(CompNode node);

    // Room for the value of a tensor that has none yet; the address is good until the next call.
    void* add(std::shared_ptr<DeviceTensorND> tensor, const kern::TensorLayout& layout);
    // Gives all tensors their memory, and waits until their values are there.
    void finish();

private:
    struct Part {
        std::shared_ptr<DeviceTensorND> tensor;
        kern::TensorLayout layout;
        size_t offset;
    };
    struct Free {
        void operator()(uint8_t* bytes) const { std::free(bytes); }
    };

    void grow(size_t bytes);

    CompNode m_node;
    std::vector<Part> m_parts;
    std::unique_ptr<uint8_t, Free> m_values;
    size_t m_size = 0;
    size_t m_capacity = 0;
};

}  // namespace orb
