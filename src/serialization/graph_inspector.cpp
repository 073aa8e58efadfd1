#include "serialization/graph_inspector.h"

#include <algorithm>
#include <utility>

#include "graph/core/hash.h"
#include "kernels/check.h"
#include "serialization/parser_context.h"

namespace orb {
namespace {

// Gives load functions no tensors and no graph, and notes what they ask for.
class InspectContext final : public ParserContext {
public:
    InspectContext(GraphFileParser& parser, const GraphLoadConfig& config, GraphFileFacts& facts)
        : ParserContext(parser, config), m_facts(facts) {}

    ComputeGraph& graph() override { KERN_FAIL(); }
    std::shared_ptr<DeviceTensorND> load_tensor() override {
        const TensorHeader header = read_tensor_header();
        note(header, header.has_value ? TensorMethod::PARAMETER : TensorMethod::INPUT);
        return nullptr;
    }
    std::shared_ptr<DeviceTensorND> load_tensor_shared() override {
        parser().count_shared_tensor();
        note(read_valued_header(), TensorMethod::SHARED);
        return nullptr;
    }
    std::shared_ptr<HostTensorND> load_constant() override {
        note(read_valued_header(), TensorMethod::CONSTANT);
        return nullptr;
    }

private:
    void note(const TensorHeader& header, TensorMethod method) {
        m_facts.tensors.push_back({header, method, m_facts.operators.size()});
        if (header.has_value)
            parser().read_value(header, nullptr);
    }

    GraphFileFacts& m_facts;
};

void inspect_records(GraphFileParser& parser, InspectContext& context, GraphFileFacts& facts,
                     bool allow_unknown) {
    while (parser.has_next_record()) {
        OperatorFacts op;
        op.head = parser.read_head(allow_unknown);
        if (!op.head.record || !op.head.record->follow) {
            facts.stopped_at = std::move(op.head);
            return;
        }
        op.first_output = parser.nr_vars();
        op.nr_outputs = op.head.record->follow(context, op.head.inputs.size());
        op.tail = parser.read_tail(op.head, op.nr_outputs);
        facts.operators.push_back(std::move(op));
    }
    facts.operators_end = parser.source().tell();
    facts.outputs = parser.read_outputs();
}

}  // namespace

std::string GraphFileFacts::var_name(uint64_t var) const {
    const auto after = std::upper_bound(
        operators.begin(), operators.end(), var,
        [](uint64_t position, const OperatorFacts& op) { return position < op.first_output; });
    if (after == operators.begin())
        return {};
    const OperatorFacts& owner = *(after - 1);
    const uint64_t index = var - owner.first_output;
    return index < owner.tail.names.size() ? owner.tail.names[static_cast<size_t>(index)] : "";
}

GraphFileFacts inspect_graph_file(InputFile& file, const GraphLoadConfig& config,
                                  bool allow_unknown) {
    GraphFileFacts facts;
    facts.begin = file.tell();
    GraphFileParser parser(file, config);
    parser.read_header();
    InspectContext context(parser, config, facts);
    inspect_records(parser, context, facts, allow_unknown);
    facts.header = parser.header();
    facts.end = file.tell();
    return facts;
}

std::optional<uint64_t> graph_digest(InputFile& file, const GraphFileFacts& facts) {
    constexpr uint8_t OWN_FEATURES = graph_feature::DTYPE_TABLE | graph_feature::NODES;
    const uint8_t features = facts.header.features;
    if ((features & OWN_FEATURES) != OWN_FEATURES || (features & graph_feature::ALIGNED_VALUES) ||
        facts.header.version != GRAPH_FORMAT_VERSION || facts.stopped_at)
        return std::nullopt;
    // The hash and the count of shared tensors count as zeros, the words ahead of them not at all.
    constexpr uint64_t UNHASHED_BYTES = 1 + sizeof(uint32_t);
    constexpr uint64_t ZERO_BYTES = 2 * sizeof(uint64_t);
    const uint64_t content = facts.begin + GRAPH_MAGIC_BYTES + UNHASHED_BYTES + ZERO_BYTES;
    const uint8_t zeros[ZERO_BYTES] = {};
    Hasher hasher(GRAPH_HASH_SEED);
    hasher.update(GRAPH_MAGIC, GRAPH_MAGIC_BYTES).update(zeros, sizeof(zeros));
    file.rewind();
    file.skip(content);
    std::vector<uint8_t> piece(size_t{1} << 16);
    for (uint64_t left = facts.end - content; left != 0;) {
        const auto bytes = static_cast<size_t>(std::min<uint64_t>(left, piece.size()));
        file.read(piece.data(), bytes);
        hasher.update(piece.data(), bytes);
        left -= bytes;
    }
    return graph_hash_of(hasher.digest());
}

}  // namespace orb
