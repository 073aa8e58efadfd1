// What load functions get while a file is loaded: the parser's bytes, the graph that grows, and the
// tensors on their nodes.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "serialization/graph_file_parser.h"
#include "serialization/shared_tensors.h"

namespace orb {

class LoadContext final : public OprLoadContext {
public:
    using TensorMap = std::unordered_map<std::string, std::shared_ptr<DeviceTensorND>>;

    // All of them must outlive the context.
    LoadContext(GraphFileParser& parser, const GraphLoadConfig& config,
                std::shared_ptr<ComputeGraph> graph, SharedTensorTable& shared);

    void read(void* buffer, size_t bytes) override { m_parser.source().read(buffer, bytes); }
    void read_more(void* buffer, size_t bytes) override {
        m_parser.source().read_more(buffer, bytes);
    }
    std::shared_ptr<const uint8_t> read_shared(size_t bytes) override {
        return m_parser.source().read_shared(bytes);
    }
    ComputeGraph& graph() override { return *m_graph; }
    std::shared_ptr<DeviceTensorND> load_tensor() override;
    std::shared_ptr<DeviceTensorND> load_tensor_shared() override;
    const GraphLoadConfig& config() const override { return m_config; }
    std::shared_ptr<HostTensorND> load_constant() override;
    const std::string& tensor_name() const override { return m_tensor_name; }
    uint64_t bytes_left() const override { return m_parser.source().bytes_left(); }
    GraphFileError error(GraphFileFault fault) const override {
        return m_parser.source().error(fault);
    }

    CompNode node_of(const CompNode::Locator& locator);
    // Gives the parameters their memory; called once, after the last record.
    void finish_parameters();
    // By name, of inputs and parameters.
    TensorMap& tensors() { return m_tensors; }

private:
    HostTensorND read_host_tensor(const TensorHeader& header);
    std::shared_ptr<DeviceTensorND> read_parameter(const TensorHeader& header, CompNode node);
    void note_name(const TensorHeader& header, const std::shared_ptr<DeviceTensorND>& tensor);

    GraphFileParser& m_parser;
    const GraphLoadConfig& m_config;
    std::shared_ptr<ComputeGraph> m_graph;
    SharedTensorTable& m_shared;
    std::unordered_map<CompNode, ParameterBlock, CompNodeHash> m_blocks;
    TensorMap m_tensors;
    std::string m_tensor_name;
    struct NewShared {
        uint64_t index;
        CompNode node;
        std::shared_ptr<DeviceTensorND> tensor;
    };
    std::vector<NewShared> m_new_shared;
};

}  // namespace orb
