#include "serialization/graph_dumper.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

#include "graph/exec/dependency_order.h"
#include "kernels/check.h"
#include "serialization/byte_forms.h"
#include "serialization/dump_context.h"
#include "serialization/operator_registry.h"

namespace orb {
namespace {

// Fills up the table of dtypes; tensors of this dtype are in the table on their own account.
constexpr uint8_t UNUSED_DTYPE = 8;

// Which dtypes tensors have, found out by letting all operators write to nowhere.
class DtypeCounter final : public OprDumpContext {
public:
    explicit DtypeCounter(const GraphDumpConfig& config) : m_config(config) {}

    void write(const void*, size_t) override {}
    void dump_tensor(const std::string&, const DeviceTensorND& tensor, TensorMethod) override {
        const auto number = static_cast<uint32_t>(tensor.dtype().enum_value());
        if (number <= UINT8_MAX)
            ++m_counts[static_cast<uint8_t>(number)];
    }
    const GraphDumpConfig& config() const override { return m_config; }

    const std::map<uint8_t, size_t>& counts() const { return m_counts; }

private:
    const GraphDumpConfig& m_config;
    std::map<uint8_t, size_t> m_counts;
};

// The most frequent keys first, smaller ones first among equals.
template <typename Key>
std::vector<Key> by_count(const std::map<Key, size_t>& counts, size_t limit) {
    std::vector<std::pair<size_t, Key>> sorted;
    for (const auto& [key, count] : counts)
        sorted.emplace_back(count, key);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<Key> keys;
    for (size_t i = 0; i < std::min(limit, sorted.size()); ++i)
        keys.push_back(sorted[i].second);
    return keys;
}

const OperatorRecord& record_of(const GraphOperator& op) {
    const OperatorRecord* record = OperatorRegistry::instance().find_by_type(op.type_record());
    KERN_CHECK(record && record->dump);
    return *record;
}

// One dump: the operators, and what readers will know when they come to each.
class GraphWriter {
public:
    GraphWriter(OutputFile& file, const std::vector<GraphVar*>& outputs,
                const GraphDumpConfig& config);

    GraphDumpResult write();

private:
    void count_dtypes();
    void list_types();
    void write_header_without_digest();
    void write_lists();
    void write_operator(const GraphOperator& op);
    // In the list of types; its end for a type that is not in it yet.
    size_t type_place(uint64_t id) const;
    unsigned type_selector(size_t place) const;
    void write_type(uint64_t id, size_t place);
    bool writes_names(const GraphOperator& op, const std::vector<GraphVar*>& outputs) const;
    void write_names(const std::vector<GraphVar*>& vars);
    void write_outputs();
    void complete_header(uint64_t start);

    OutputFile& m_file;
    const std::vector<GraphVar*>& m_outputs;
    const GraphDumpConfig& m_config;
    const std::vector<GraphOperator*> m_operators;
    std::set<const GraphOperator*> m_output_owners;
    std::vector<uint64_t> m_type_ids;
    size_t m_nr_listed_types = 0;
    std::array<uint8_t, NR_LISTED_DTYPES> m_dtypes;
    std::vector<uint64_t> m_dtype_operators;
    std::unordered_map<const GraphVar*, uint64_t> m_var_places;
    std::optional<DumpContext> m_context;
};

GraphWriter::GraphWriter(OutputFile& file, const std::vector<GraphVar*>& outputs,
                         const GraphDumpConfig& config)
    : m_file(file), m_outputs(outputs), m_config(config), m_operators(sort_by_dependency(outputs)) {
    std::set<std::string> names;
    for (const GraphVar* var : outputs) {
        KERN_CHECK(!var->has_flag(var_flag::VOLATILE_CONTENT));
        KERN_CHECK(&var->owner_graph() == &outputs[0]->owner_graph());
        KERN_CHECK(!config.check_names || names.insert(var->name()).second);
        m_output_owners.insert(var->owner_operator());
    }
    list_types();
    count_dtypes();
    for (size_t i = 0; i < m_operators.size(); ++i) {
        if (m_operators[i]->config().output_dtype.valid())
            m_dtype_operators.push_back(i);
    }
    m_context.emplace(file, config, m_dtypes);
}

void GraphWriter::list_types() {
    std::map<uint64_t, size_t> counts;
    for (const GraphOperator* op : m_operators)
        ++counts[record_of(*op).persist_id];
    m_type_ids = by_count(counts, MAX_LISTED_TYPES);
    m_nr_listed_types = m_type_ids.size();
}

void GraphWriter::count_dtypes() {
    DtypeCounter counter(m_config);
    for (const GraphOperator* op : m_operators)
        record_of(*op).dump(counter, *op);
    m_dtypes.fill(UNUSED_DTYPE);
    const auto listed = by_count(counter.counts(), NR_LISTED_DTYPES);
    std::copy(listed.begin(), listed.end(), m_dtypes.begin());
}

GraphDumpResult GraphWriter::write() {
    const uint64_t start = m_file.tell();
    write_header_without_digest();
    write_lists();
    for (const GraphOperator* op : m_operators)
        write_operator(*op);
    write_outputs();
    const uint64_t end = m_file.tell();
    complete_header(start);
    m_file.seek(end);

    GraphDumpResult result = std::move(m_context->result());
    result.nr_operators = m_operators.size();
    result.total_bytes = end - start;
    return result;
}

// What the digest leaves out is written again when the digest is known.
void GraphWriter::write_header_without_digest() {
    m_context->write(GRAPH_MAGIC, GRAPH_MAGIC_BYTES);
    const uint8_t features = 0;
    m_context->write_unhashed(&features, sizeof(features));
    m_context->write_unhashed(&GRAPH_FORMAT_VERSION, sizeof(GRAPH_FORMAT_VERSION));
    write_word(*m_context, uint64_t{0});
    write_word(*m_context, uint64_t{0});
}

void GraphWriter::complete_header(uint64_t start) {
    uint8_t features = graph_feature::DTYPE_TABLE | graph_feature::NODES;
    if (m_config.keep_priorities)
        features |= graph_feature::PRIORITIES;
    if (!m_dtype_operators.empty())
        features |= graph_feature::OUTPUT_DTYPES;
    const uint64_t words[] = {m_context->digest(), m_context->nr_shared_tensors()};
    m_file.seek(start + GRAPH_MAGIC_BYTES);
    m_file.write(&features, sizeof(features));
    m_file.write(&GRAPH_FORMAT_VERSION, sizeof(GRAPH_FORMAT_VERSION));
    m_file.write(words, sizeof(words));
}

void GraphWriter::write_lists() {
    for (uint64_t id : m_type_ids)
        write_word(*m_context, id);
    if (m_type_ids.size() < MAX_LISTED_TYPES)
        write_word(*m_context, uint64_t{0});
    m_context->write(m_dtypes.data(), m_dtypes.size());
    if (!m_dtype_operators.empty()) {
        write_varint(*m_context, m_dtype_operators.size());
        for (uint64_t position : m_dtype_operators)
            write_varint(*m_context, position);
    }
    write_varint(*m_context, m_operators.size());
}

void GraphWriter::write_operator(const GraphOperator& op) {
    const OperatorRecord& record = record_of(op);
    const std::vector<GraphVar*> outputs = op.kept_outputs();
    const size_t type = type_place(record.persist_id);
    const bool has_names = writes_names(op, outputs);
    const size_t nr_inputs = op.input().size();
    write_word(*m_context,
               static_cast<uint8_t>(type_selector(type) | (has_names ? HAS_NAMES : 0) |
                                    std::min<size_t>(nr_inputs, NR_INPUTS_FOLLOWS) << 5));
    write_type(record.persist_id, type);
    if (nr_inputs >= NR_INPUTS_FOLLOWS)
        write_varint(*m_context, nr_inputs);
    for (const GraphVar* var : op.input())
        write_varint(*m_context, m_var_places.size() - m_var_places.at(var));
    m_context->write_config_nodes(op.config().comp_nodes);
    if (op.config().output_dtype.valid())
        write_dtype(*m_context, op.config().output_dtype);
    if (!record.name.empty())
        write_string(*m_context, record.name);
    record.dump(*m_context, op);
    if (has_names)
        write_names(outputs);
    if (m_config.keep_priorities)
        write_word(*m_context, op.priority());
    write_word(*m_context, END_MARK);
    for (const GraphVar* var : outputs)
        m_var_places.emplace(var, m_var_places.size());
}

size_t GraphWriter::type_place(uint64_t id) const {
    return static_cast<size_t>(std::find(m_type_ids.begin(), m_type_ids.end(), id) -
                               m_type_ids.begin());
}

unsigned GraphWriter::type_selector(size_t place) const {
    if (place == m_type_ids.size())
        return SELECT_LITERAL;
    return place < m_nr_listed_types ? static_cast<unsigned>(place) : SELECT_BY_INDEX;
}

void GraphWriter::write_type(uint64_t id, size_t place) {
    const unsigned selector = type_selector(place);
    if (selector == SELECT_LITERAL) {
        write_word(*m_context, id);
        m_type_ids.push_back(id);
    } else if (selector == SELECT_BY_INDEX) {
        write_varint(*m_context, place);
    }
}

bool GraphWriter::writes_names(const GraphOperator& op,
                               const std::vector<GraphVar*>& outputs) const {
    if (m_config.var_names == VarNames::NONE ||
        (m_config.var_names == VarNames::OUTPUTS && m_output_owners.count(&op) == 0))
        return false;
    return std::any_of(outputs.begin(), outputs.end(),
                       [](const GraphVar* var) { return var->has_name(); });
}

void GraphWriter::write_names(const std::vector<GraphVar*>& vars) {
    for (const GraphVar* var : vars)
        write_string(*m_context, var->has_name() ? var->name() : "");
}

void GraphWriter::write_outputs() {
    write_varint(*m_context, m_outputs.size());
    for (const GraphVar* var : m_outputs) {
        write_varint(*m_context, m_var_places.at(var));
        write_varint(*m_context, var->id());
    }
}

}  // namespace

GraphDumper::GraphDumper(std::unique_ptr<OutputFile> file) : m_file(std::move(file)) {}

GraphDumpResult GraphDumper::dump(const std::vector<GraphVar*>& output_vars,
                                  const GraphDumpConfig& config) {
    KERN_CHECK(m_file);
    return GraphWriter(*m_file, output_vars, config).write();
}

}  // namespace orb
