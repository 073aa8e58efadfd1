// What load functions get while a file is loaded: the parser's bytes, the graph that grows, and the
// tensors on their nodes.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "serialization/parser_context.h"
#include "serialization/shared_tensors.h"

namespace orb {

class LoadContext final : public ParserContext {
public:
    using TensorMap = std::unordered_map<std::string, std::shared_ptr<DeviceTensorND>>;

    // All of them must outlive the context.
    LoadContext(GraphFileParser& parser, const GraphLoadConfig& config,
                std::shared_ptr<ComputeGraph> graph, SharedTensorTable& shared);

    ComputeGraph& graph() override { return *m_graph; }
    std::shared_ptr<DeviceTensorND> load_tensor() override;
    std::shared_ptr<DeviceTensorND> load_tensor_shared() override;
    std::shared_ptr<HostTensorND> load_constant() override;

    CompNode node_of(const CompNode::Locator& locator);
    // Gives the parameters their memory; called once, after the last record.
    void finish_parameters();
    // By name, of inputs and parameters.
    TensorMap& tensors() { return m_tensors; }

private:
    HostTensorND read_host_tensor(const TensorHeader& header, CompNode node);
    std::shared_ptr<DeviceTensorND> read_parameter(const TensorHeader& header, CompNode node);
    void note_name(const TensorHeader& header, const std::shared_ptr<DeviceTensorND>& tensor);

    std::shared_ptr<ComputeGraph> m_graph;
    SharedTensorTable& m_shared;
    std::unordered_map<CompNode, ParameterBlock, CompNodeHash> m_blocks;
    TensorMap m_tensors;
    struct NewShared {
        uint64_t index;
        CompNode node;
        std::shared_ptr<DeviceTensorND> tensor;
    };
    std::vector<NewShared> m_new_shared;
};

}  // namespace orb
