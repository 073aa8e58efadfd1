// Follows a graph file field by field, without building anything. Whatever is wrong with the bytes
// is thrown as a `GraphFileError`. The parameters of a record are read between its head and its
// tail by whoever knows the operator.
#pragma once

#include <string>
#include <vector>

#include "serialization/contexts.h"
#include "serialization/file_source.h"
#include "serialization/graph_file_header.h"
#include "serialization/operator_registry.h"

namespace orb {

// Up to the parameters.
struct RecordHead {
    uint64_t offset = 0;
    uint64_t type_id = 0;
    const OperatorRecord* record = nullptr;  // null for an unknown id
    std::vector<uint64_t> inputs;            // positions in the var table
    std::vector<CompNode::Locator> nodes;
    kern::DType output_dtype;
    bool has_names = false;
};

// Behind the parameters.
struct RecordTail {
    std::vector<std::string> names;  // one per output, or none
    int32_t priority = 0;
};

// A tensor record up to its value.
struct TensorHeader {
    uint64_t offset = 0;
    std::string name;
    CompNode::Locator node;
    kern::TensorLayout layout;
    size_t bytes = 0;
    bool has_value = false;
};

struct OutputRecord {
    uint64_t var = 0;  // position in the var table
    uint64_t id = 0;   // that the var had for the writer
};

class GraphFileParser {
public:
    // Of the configuration it takes what concerns nodes and values. Both must outlive the parser.
    GraphFileParser(InputFile& file, const GraphLoadConfig& config);

    FileSource& source() { return m_source; }
    const GraphFileHeader& header() const { return m_header; }

    // Through the operator count.
    void read_header();
    bool has_next_record() const { return m_nr_records < m_header.nr_operators; }
    // An operator that cannot be made is an error unless it is allowed; see `RecordHead::record`.
    RecordHead read_head(bool allow_unknown = false);
    // The outputs take the next positions of the var table.
    RecordTail read_tail(const RecordHead& head, size_t nr_outputs);
    // Also checks what the header says of the whole.
    std::vector<OutputRecord> read_outputs();
    uint64_t nr_vars() const { return m_nr_vars; }

    TensorHeader read_tensor_header();
    // Its position among those that loads share.
    uint64_t count_shared_tensor();
    // The value of the tensor whose header was just read. The destination has room for it, and is
    // null to pass over the value.
    void read_value(const TensorHeader& tensor, void* destination);

private:
    void read_magic();
    void read_type_list();
    void read_dtype_operators();
    uint64_t read_count(uint64_t bytes_each);
    uint64_t read_type_id(unsigned selector);
    uint64_t read_input();
    std::vector<CompNode::Locator> read_config_nodes();
    CompNode::Locator read_tensor_node();
    CompNode::Locator parse_node(const std::string& text) const;
    const CompNode::Locator& node_at(uint64_t index) const;
    kern::DType read_tensor_dtype(unsigned code);
    void read_shape(TensorHeader& tensor, size_t rank, kern::DType dtype);
    void check_value_size(const TensorHeader& tensor);

    FileSource m_source;
    const GraphLoadConfig& m_config;
    GraphFileHeader m_header;
    std::vector<CompNode::Locator> m_nodes;
    size_t m_next_dtype_operator = 0;
    uint64_t m_nr_records = 0;
    uint64_t m_nr_vars = 0;
    uint64_t m_nr_shared = 0;
    uint64_t m_bytes_without_value = 0;
};

}  // namespace orb
