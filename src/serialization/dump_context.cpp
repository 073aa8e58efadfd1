#include "serialization/dump_context.h"

#include <algorithm>

#include "kernels/check.h"
#include "serialization/byte_forms.h"

namespace orb {
namespace {

constexpr size_t NODE_INDEX_LIMIT = 64;
constexpr size_t NODE_LIST_LIMIT = 64;
constexpr size_t TENSOR_NODE_INDEX_LIMIT = 128;
constexpr size_t TENSOR_NODE_TEXT_LIMIT = 128;

// The name under which the node was loaded, so that another machine may use another device for it.
// One that could not be read stops the process.
std::string text_of(CompNode node) {
    const std::string text = node.locator_logical().to_string();
    const auto parsed = CompNode::Locator::try_parse(text);
    KERN_CHECK(parsed && parsed->to_string() == text);
    return text;
}

// Ranks 1, 2 and 4 have codes of their own.
unsigned rank_code(size_t rank) {
    switch (rank) {
        case 1:
            return 0;
        case 2:
            return 1;
        case 4:
            return 2;
        default:
            return RANK_FOLLOWS;
    }
}

}  // namespace

std::optional<size_t> WrittenNodes::find(const std::string& text, size_t limit) const {
    const auto found = m_first_place.find(text);
    if (found == m_first_place.end() || found->second >= limit)
        return std::nullopt;
    return found->second;
}

void WrittenNodes::add(const std::string& text) {
    m_first_place.emplace(text, m_count++);
}

DumpContext::DumpContext(OutputFile& file, const GraphDumpConfig& config,
                         const std::array<uint8_t, NR_LISTED_DTYPES>& dtypes)
    : m_file(file), m_config(config), m_dtypes(dtypes), m_hasher(GRAPH_HASH_SEED) {}

void DumpContext::write(const void* buffer, size_t bytes) {
    m_file.write(buffer, bytes);
    m_hasher.update(buffer, bytes);
}

void DumpContext::write_config_nodes(const std::vector<CompNode>& nodes) {
    if (nodes.size() != 1) {
        KERN_CHECK(nodes.size() < NODE_LIST_LIMIT);
        write_word(*this, static_cast<uint8_t>(NODE_LIST | nodes.size() << 2));
        for (CompNode node : nodes)
            write_string(*this, text_of(node));
        return;
    }
    const std::string text = text_of(nodes[0]);
    if (const auto place = m_nodes.find(text, NODE_INDEX_LIMIT)) {
        write_word(*this, static_cast<uint8_t>(NODE_INDEX | *place << 2));
        return;
    }
    write_word(*this, uint8_t{0});
    write_string(*this, text);
    m_nodes.add(text);
}

void DumpContext::dump_tensor(const std::string& given_name, const DeviceTensorND& tensor,
                              TensorMethod method) {
    // Whoever loads the graph has to find its inputs.
    const bool needs_name = method == TensorMethod::INPUT && given_name.empty();
    const std::string name =
        needs_name ? "input" + std::to_string(m_result.inputs.size()) : given_name;
    const kern::TensorLayout& layout = tensor.layout();
    KERN_CHECK(layout.ndim != 0 && layout.format->is_default());
    const bool has_value = method != TensorMethod::INPUT;
    const bool has_memory = tensor.storage().use_count() != 0;
    KERN_CHECK(has_value ? has_memory || layout.has_zero_axis() : !has_memory);
    const std::string node = text_of(tensor.comp_node());
    const bool on_first_node = m_nodes.find(node, 1).has_value();
    const unsigned dtype = dtype_code(layout.dtype);
    const unsigned rank = rank_code(layout.ndim);
    write_word(*this, static_cast<uint8_t>((name.empty() ? 0 : TENSOR_HAS_NAME) |
                                           (has_value ? TENSOR_HAS_VALUE : 0) |
                                           (on_first_node ? TENSOR_ON_FIRST_NODE : 0) | rank << 3 |
                                           dtype << 5));
    if (!name.empty())
        write_string(*this, name);
    if (!on_first_node)
        write_tensor_node(node);
    if (rank == RANK_FOLLOWS)
        write_varint(*this, layout.ndim);
    if (dtype == DTYPE_FOLLOWS)
        write_dtype(*this, layout.dtype);
    for (size_t axis = 0; axis < layout.ndim; ++axis)
        write_varint(*this, layout[axis]);
    if (has_value)
        write_value(tensor);
    note_tensor(name, method);
}

// The place in the table, or 7 for a dtype that is not in it.
unsigned DumpContext::dtype_code(kern::DType dtype) const {
    const auto number = static_cast<uint32_t>(dtype.enum_value());
    const auto found = std::find(m_dtypes.begin(), m_dtypes.end(), number);
    return static_cast<unsigned>(found - m_dtypes.begin());
}

void DumpContext::write_tensor_node(const std::string& node) {
    if (const auto place = m_nodes.find(node, TENSOR_NODE_INDEX_LIMIT)) {
        write_word(*this, static_cast<uint8_t>(TENSOR_NODE_INDEX | *place));
        return;
    }
    KERN_CHECK(node.size() < TENSOR_NODE_TEXT_LIMIT);
    write_word(*this, static_cast<uint8_t>(node.size()));
    write(node.data(), node.size());
    m_nodes.add(node);
}

void DumpContext::write_value(const DeviceTensorND& tensor) {
    const size_t bytes = tensor.dtype().byte_size(tensor.shape().element_count());
    if (bytes == 0)
        return;
    // Memory of a CPU node is the host's; anything else goes through a contiguous copy.
    const bool is_here =
        tensor.comp_node().memory_space() == CompNode::default_cpu().memory_space();
    if (is_here && tensor.layout().is_dense()) {
        tensor.comp_node().sync();
        write(tensor.raw_ptr(), bytes);
    } else {
        HostTensorND value;
        value.copy_from(tensor);
        tensor.comp_node().sync();
        write(value.raw_ptr(), bytes);
    }
    m_result.tensor_value_bytes += bytes;
}

void DumpContext::note_tensor(const std::string& name, TensorMethod method) {
    if (method == TensorMethod::INPUT)
        m_result.inputs.push_back(name);
    if (method == TensorMethod::PARAMETER || method == TensorMethod::SHARED)
        m_result.parameters.push_back(name);
    if (method == TensorMethod::SHARED)
        ++m_nr_shared;
}

}  // namespace orb
