#include "serialization/load_context.h"

#include <utility>

namespace orb {

LoadContext::LoadContext(GraphFileParser& parser, const GraphLoadConfig& config,
                         std::shared_ptr<ComputeGraph> graph, SharedTensorTable& shared)
    : ParserContext(parser, config), m_graph(std::move(graph)), m_shared(shared) {}

CompNode LoadContext::node_of(const CompNode::Locator& locator) {
    return config().node_mapper ? config().node_mapper(locator)
                                : CompNode::load(locator.to_physical(), locator);
}

HostTensorND LoadContext::read_host_tensor(const TensorHeader& header, CompNode node) {
    HostTensorND tensor(node, header.layout, header.layout.dtype);
    parser().read_value(header, header.bytes == 0 ? nullptr : tensor.raw_ptr());
    return tensor;
}

std::shared_ptr<DeviceTensorND> LoadContext::load_tensor() {
    const TensorHeader header = read_tensor_header();
    const CompNode node = node_of(header.node);
    auto tensor = std::make_shared<DeviceTensorND>(node, header.layout, header.layout.dtype);
    if (header.has_value) {
        const HostTensorND value = read_host_tensor(header, node);
        tensor->copy_from(value);
        node.sync();
    }
    note_name(header, tensor);
    return tensor;
}

std::shared_ptr<HostTensorND> LoadContext::load_constant() {
    const TensorHeader header = read_valued_header();
    return std::make_shared<HostTensorND>(read_host_tensor(header, node_of(header.node)));
}

std::shared_ptr<DeviceTensorND> LoadContext::load_tensor_shared() {
    const uint64_t index = parser().count_shared_tensor();
    const TensorHeader header = read_valued_header();
    const CompNode node = node_of(header.node);
    auto tensor = m_shared.find(index, node);
    if (!tensor) {
        tensor = read_parameter(header, node);
        m_new_shared.push_back({index, node, tensor});
    } else {
        parser().read_value(header, nullptr);
        // Its owner may have moved it since.
        if (tensor->comp_node() != node) {
            auto moved = std::make_shared<DeviceTensorND>(node, tensor->dtype());
            moved->copy_from(*tensor);
            node.sync();
            tensor->comp_node().sync();
            tensor = std::move(moved);
        }
    }
    note_name(header, tensor);
    return tensor;
}

// The default CPU node's own memory is where values are read to; the other nodes get theirs at the
// end.
std::shared_ptr<DeviceTensorND> LoadContext::read_parameter(const TensorHeader& header,
                                                            CompNode node) {
    auto tensor = std::make_shared<DeviceTensorND>(node, header.layout, header.layout.dtype);
    if (header.bytes == 0) {
        parser().read_value(header, nullptr);
    } else if (node == CompNode::default_cpu()) {
        parser().read_value(header, tensor->raw_ptr());
    } else {
        ParameterBlock& block = m_blocks.try_emplace(node, node).first->second;
        parser().read_value(header, block.add(tensor, header.layout));
    }
    return tensor;
}

void LoadContext::finish_parameters() {
    for (auto& [node, block] : m_blocks)
        block.finish();
    m_blocks.clear();
    // Only now: a load that fails leaves nothing behind that a later one would take for a value.
    for (const NewShared& shared : m_new_shared)
        m_shared.add(shared.index, shared.node, shared.tensor);
    m_new_shared.clear();
}

void LoadContext::note_name(const TensorHeader& header,
                            const std::shared_ptr<DeviceTensorND>& tensor) {
    if (!header.name.empty())
        m_tensors.emplace(header.name, tensor);
}

}  // namespace orb
