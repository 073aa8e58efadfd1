#include "serialization/graph_loader.h"

#include <utility>

#include "kernels/check.h"
#include "serialization/load_context.h"

namespace orb {
namespace {

// The vars that records refer to, with the names that the file gives them.
class VarTable {
public:
    // Where an equal operator was there already, its vars keep the names that they have.
    void append(const std::vector<GraphVar*>& outputs, const RecordTail& tail, bool is_new) {
        for (size_t i = 0; i < outputs.size(); ++i) {
            if (i < tail.names.size() && !tail.names[i].empty()) {
                m_names.emplace(m_vars.size(), tail.names[i]);
                if (is_new || !outputs[i]->has_name())
                    outputs[i]->name(tail.names[i]);
            }
            m_vars.push_back(outputs[i]);
        }
    }
    GraphVar* at(uint64_t position) const { return m_vars[static_cast<size_t>(position)]; }
    // Null for a var that the file gives no name.
    const std::string* name_at(uint64_t position) const {
        const auto found = m_names.find(static_cast<size_t>(position));
        return found == m_names.end() ? nullptr : &found->second;
    }

private:
    std::vector<GraphVar*> m_vars;
    std::unordered_map<size_t, std::string> m_names;
};

void load_operator(GraphFileParser& parser, LoadContext& context, VarTable& vars) {
    const RecordHead head = parser.read_head();
    std::vector<GraphVar*> inputs;
    for (uint64_t position : head.inputs)
        inputs.push_back(vars.at(position));
    OperatorConfig config;
    for (const CompNode::Locator& node : head.nodes)
        config.comp_nodes.push_back(context.node_of(node));
    config.output_dtype = head.output_dtype;

    const size_t nr_operators = context.graph().nr_operators();
    GraphOperator* op = head.record->load(context, inputs, config);
    KERN_CHECK(op && (!head.record->type || op->type_record() == head.record->type));
    const std::vector<GraphVar*> outputs = op->kept_outputs();
    const RecordTail tail = parser.read_tail(head, outputs.size());
    const bool is_new = context.graph().nr_operators() != nr_operators;
    if (is_new)
        op->priority(tail.priority);
    vars.append(outputs, tail, is_new);
}

}  // namespace

GraphLoader::GraphLoader(std::unique_ptr<InputFile> file) : m_file(std::move(file)) {}

GraphLoadResult GraphLoader::load(const GraphLoadConfig& config, bool rewind) {
    KERN_CHECK(m_file);
    try {
        return load_or_throw(config, rewind);
    } catch (const GraphFileError&) {
        KERN_FAIL();
    }
}

GraphLoadResult GraphLoader::load_or_throw(const GraphLoadConfig& config, bool rewind) {
    if (rewind)
        m_file->rewind();
    GraphFileParser parser(*m_file, config);
    parser.read_header();
    if (m_hash == 0)
        m_hash = parser.header().hash;
    if (m_hash != parser.header().hash)
        parser.source().fail(GraphFileFault::OTHER_HASH);
    if (!m_nr_shared)
        m_nr_shared = parser.header().nr_shared_tensors;
    if (*m_nr_shared != parser.header().nr_shared_tensors)
        parser.source().fail(GraphFileFault::SHARED_COUNT);

    GraphLoadResult result;
    result.graph = config.graph ? config.graph : ComputeGraph::make();
    LoadContext context(parser, config, result.graph, m_shared);
    VarTable vars;
    while (parser.has_next_record())
        load_operator(parser, context, vars);
    const std::vector<OutputRecord> outputs = parser.read_outputs();
    context.finish_parameters();

    result.tensor_map = std::move(context.tensors());
    for (const OutputRecord& output : outputs) {
        GraphVar* var = vars.at(output.var);
        result.output_vars.push_back(var);
        result.output_var_map_id.emplace(output.id, var);
        if (const std::string* name = vars.name_at(output.var))
            result.output_var_map.emplace(*name, var);
    }
    return result;
}

}  // namespace orb
