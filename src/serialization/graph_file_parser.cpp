#include "serialization/graph_file_parser.h"

#include <algorithm>
#include <cstring>

#include "serialization/byte_forms.h"

namespace orb {
namespace {

using Fault = GraphFileFault;
using Locator = CompNode::Locator;

// The shortest operator is its header byte and its end mark, the shortest output two numbers.
constexpr uint64_t MIN_OPERATOR_BYTES = 2;
constexpr uint64_t MIN_OUTPUT_BYTES = 2;
// The header byte of its operator, its own, one axis and the end mark.
constexpr uint64_t MIN_SHARED_TENSOR_BYTES = 4;

// So that memory stays in proportion to the file: of one operator, and of outputs that are listed
// again.
constexpr uint64_t MAX_INPUTS = 1024;
constexpr uint64_t MAX_MORE_OUTPUTS = 1024;

}  // namespace

GraphFileParser::GraphFileParser(InputFile& file, const GraphLoadConfig& config)
    : m_source(file), m_config(config) {
    // Until a header says otherwise, as for a record that stands alone.
    m_header.nr_shared_tensors = UINT64_MAX;
}

void GraphFileParser::read_header() {
    read_magic();
    if (m_header.has(graph_feature::NODES))
        m_header.version = read_word<uint32_t>(m_source);
    m_header.hash = read_word<uint64_t>(m_source);
    if (m_header.hash == 0)
        m_source.fail(Fault::ZERO_HASH);
    m_header.nr_shared_tensors = read_word<uint64_t>(m_source);
    if (m_header.nr_shared_tensors > m_source.bytes_left() / MIN_SHARED_TENSOR_BYTES)
        m_source.fail(Fault::COUNT);
    read_type_list();
    if (m_header.has(graph_feature::DTYPE_TABLE))
        m_source.read(m_header.dtypes.data(), m_header.dtypes.size());
    if (m_header.has(graph_feature::OUTPUT_DTYPES))
        read_dtype_operators();
    m_header.nr_operators = read_count(MIN_OPERATOR_BYTES);
    if (!m_header.dtype_operators.empty() &&
        m_header.dtype_operators.back() >= m_header.nr_operators)
        m_source.fail(Fault::INDEX);
}

void GraphFileParser::read_magic() {
    char magic[GRAPH_MAGIC_BYTES + 1];
    m_source.read(magic, sizeof(magic));
    if (std::memcmp(magic, GRAPH_MAGIC_WITHOUT_FEATURES, sizeof(magic)) == 0)
        return;
    if (std::memcmp(magic, GRAPH_MAGIC, GRAPH_MAGIC_BYTES) != 0)
        m_source.fail(Fault::MAGIC);
    m_header.features = static_cast<uint8_t>(magic[GRAPH_MAGIC_BYTES]);
    if (m_header.has(graph_feature::RESERVED))
        m_source.fail(Fault::FEATURES);
}

void GraphFileParser::read_type_list() {
    while (m_header.type_ids.size() < MAX_LISTED_TYPES) {
        const auto id = read_word<uint64_t>(m_source);
        if (id == 0)
            break;
        m_header.type_ids.push_back(id);
    }
}

void GraphFileParser::read_dtype_operators() {
    auto& operators = m_header.dtype_operators;
    uint64_t count = read_count(1 + MIN_OPERATOR_BYTES + 1);
    for (operators.reserve(static_cast<size_t>(count)); count != 0; --count)
        operators.push_back(read_varint(m_source));
    std::sort(operators.begin(), operators.end());
    operators.erase(std::unique(operators.begin(), operators.end()), operators.end());
}

// Of entries that take at least so many bytes.
uint64_t GraphFileParser::read_count(uint64_t bytes_each) {
    const uint64_t count = read_varint(m_source);
    if (count > m_source.bytes_left() / bytes_each)
        m_source.fail(Fault::COUNT);
    return count;
}

RecordHead GraphFileParser::read_head(bool allow_unknown) {
    m_source.begin_record(m_nr_records);
    RecordHead head;
    head.offset = m_source.tell();
    const auto byte = read_word<uint8_t>(m_source);
    head.type_id = read_type_id(byte & 0x07);
    head.record = OperatorRegistry::instance().find_by_id(head.type_id);
    const bool is_available = head.record && head.record->load;
    if (!is_available && !allow_unknown)
        m_source.fail_at(head.record ? Fault::UNAVAILABLE_OPERATOR : Fault::UNKNOWN_OPERATOR,
                         head.offset);
    head.has_names = (byte & HAS_NAMES) != 0;
    uint64_t nr_inputs = byte >> 5;
    if (nr_inputs == NR_INPUTS_FOLLOWS)
        nr_inputs = read_count(1);
    if (nr_inputs > MAX_INPUTS)
        m_source.fail(Fault::COUNT);
    for (head.inputs.reserve(static_cast<size_t>(nr_inputs)); nr_inputs != 0; --nr_inputs)
        head.inputs.push_back(read_input());
    if (m_header.has(graph_feature::NODES))
        head.nodes = read_config_nodes();
    const auto& with_dtype = m_header.dtype_operators;
    if (m_next_dtype_operator < with_dtype.size() &&
        with_dtype[m_next_dtype_operator] == m_nr_records) {
        ++m_next_dtype_operator;
        head.output_dtype = read_dtype(m_source);
    }
    return head;
}

uint64_t GraphFileParser::read_type_id(unsigned selector) {
    auto& ids = m_header.type_ids;
    if (selector == SELECT_LITERAL) {
        ids.push_back(read_word<uint64_t>(m_source));
        return ids.back();
    }
    const uint64_t index = selector == SELECT_BY_INDEX ? read_varint(m_source) : selector;
    if (index >= ids.size())
        m_source.fail(Fault::INDEX);
    return ids[static_cast<size_t>(index)];
}

// So many places back from the end of the var table.
uint64_t GraphFileParser::read_input() {
    const uint64_t distance = read_varint(m_source);
    if (distance == 0 || distance > m_nr_vars)
        m_source.fail(Fault::INDEX);
    return m_nr_vars - distance;
}

std::vector<Locator> GraphFileParser::read_config_nodes() {
    const auto byte = read_word<uint8_t>(m_source);
    if (byte & NODE_LIST) {
        std::vector<Locator> nodes;
        for (unsigned count = byte >> 2; count != 0; --count)
            nodes.push_back(parse_node(read_string(m_source)));
        return nodes;
    }
    if (byte & NODE_INDEX)
        return {node_at(byte >> 2)};
    m_nodes.push_back(parse_node(read_string(m_source)));
    return {m_nodes.back()};
}

const Locator& GraphFileParser::node_at(uint64_t index) const {
    if (index >= m_nodes.size())
        m_source.fail(Fault::INDEX);
    return m_nodes[static_cast<size_t>(index)];
}

Locator GraphFileParser::parse_node(const std::string& text) const {
    const auto locator = Locator::try_parse(text);
    // A mapper may know what to use instead.
    if (!locator || (!m_config.node_mapper && !locator->can_name_cpu()))
        m_source.fail(Fault::NODE);
    return *locator;
}

RecordTail GraphFileParser::read_tail(const RecordHead& head, size_t nr_outputs) {
    RecordTail tail;
    if (head.has_names) {
        for (size_t i = 0; i < nr_outputs; ++i)
            tail.names.push_back(read_string(m_source));
    }
    if (m_header.has(graph_feature::PRIORITIES))
        tail.priority = read_word<int32_t>(m_source);
    if (read_word<char>(m_source) != END_MARK)
        m_source.fail(Fault::END_MARK);
    m_nr_vars += nr_outputs;
    ++m_nr_records;
    m_source.end_records();
    return tail;
}

std::vector<OutputRecord> GraphFileParser::read_outputs() {
    std::vector<OutputRecord> outputs;
    uint64_t count = read_count(MIN_OUTPUT_BYTES);
    if (count > m_nr_vars + MAX_MORE_OUTPUTS)
        m_source.fail(Fault::COUNT);
    for (outputs.reserve(static_cast<size_t>(count)); count != 0; --count) {
        const uint64_t var = read_varint(m_source);
        if (var >= m_nr_vars)
            m_source.fail(Fault::INDEX);
        outputs.push_back({var, read_varint(m_source)});
    }
    if (m_nr_shared != m_header.nr_shared_tensors)
        m_source.fail(Fault::SHARED_COUNT);
    return outputs;
}

TensorHeader GraphFileParser::read_tensor_header() {
    TensorHeader tensor;
    tensor.offset = m_source.tell();
    const auto byte = read_word<uint8_t>(m_source);
    if (byte & TENSOR_HAS_NAME)
        tensor.name = read_string(m_source);
    tensor.node = byte & TENSOR_ON_FIRST_NODE ? node_at(0) : read_tensor_node();
    const unsigned rank_code = (byte >> 3) & 0x03;
    const uint64_t rank =
        rank_code == RANK_FOLLOWS ? read_varint(m_source) : uint64_t{1} << rank_code;
    if (rank == 0 || rank > kern::TensorShape::MAX_NDIM)
        m_source.fail(Fault::SHAPE);
    const kern::DType dtype = read_tensor_dtype(byte >> 5);
    read_shape(tensor, static_cast<size_t>(rank), dtype);
    tensor.has_value = (byte & TENSOR_HAS_VALUE) != 0;
    check_value_size(tensor);
    return tensor;
}

Locator GraphFileParser::read_tensor_node() {
    const auto byte = read_word<uint8_t>(m_source);
    if (byte & TENSOR_NODE_INDEX)
        return node_at(byte ^ TENSOR_NODE_INDEX);
    m_nodes.push_back(parse_node(read_text(m_source, byte)));
    return m_nodes.back();
}

kern::DType GraphFileParser::read_tensor_dtype(unsigned code) {
    return code == DTYPE_FOLLOWS ? read_dtype(m_source)
                                 : read_dtype_param(m_source, m_header.dtypes[code]);
}

// No extent, and no product of extents, is more than memory can hold, also where one of them is 0.
void GraphFileParser::read_shape(TensorHeader& tensor, size_t rank, kern::DType dtype) {
    kern::TensorShape shape;
    shape.ndim = rank;
    // Of low-bit types the bits are counted as bytes: their number must fit, too.
    uint64_t bytes = dtype.is_low_bit() ? dtype.low_bits() : dtype.element_bytes();
    for (size_t axis = 0; axis < rank; ++axis) {
        const uint64_t length = read_varint(m_source);
        if (__builtin_mul_overflow(bytes, std::max<uint64_t>(length, 1), &bytes) ||
            bytes > PTRDIFF_MAX)
            m_source.fail(Fault::SHAPE);
        shape[axis] = static_cast<size_t>(length);
    }
    tensor.layout = kern::TensorLayout(shape, dtype);
    tensor.bytes = dtype.byte_size(shape.element_count());
}

// The memory that a file asks for is in proportion to its bytes, or below a limit.
void GraphFileParser::check_value_size(const TensorHeader& tensor) {
    const bool is_in_file = tensor.bytes <= m_source.bytes_left();
    if (tensor.has_value && is_in_file)
        return;
    if (tensor.has_value && !m_config.value_loader)
        m_source.fail(Fault::TRUNCATED);
    if (tensor.bytes > m_config.max_bytes_without_value - m_bytes_without_value)
        m_source.fail(Fault::VALUE);
    m_bytes_without_value += tensor.bytes;
}

uint64_t GraphFileParser::count_shared_tensor() {
    if (m_nr_shared == m_header.nr_shared_tensors)
        m_source.fail(Fault::SHARED_COUNT);
    return m_nr_shared++;
}

void GraphFileParser::read_value(const TensorHeader& tensor, void* destination) {
    if (m_header.has(graph_feature::ALIGNED_VALUES)) {
        const uint64_t distance =
            (VALUE_ALIGNMENT - m_source.tell() % VALUE_ALIGNMENT) % VALUE_ALIGNMENT;
        if (tensor.bytes >= 8 * distance)
            m_source.skip(distance);
    }
    if (m_config.value_loader)
        m_config.value_loader(destination, tensor.layout, m_source.file());
    else if (destination)
        m_source.read(destination, tensor.bytes);
    else
        m_source.skip(tensor.bytes);
}

}  // namespace orb
