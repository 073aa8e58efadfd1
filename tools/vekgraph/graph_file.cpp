#include "vekgraph/graph_file.h"

#include "common/failure.h"
#include "vekgraph/text.h"

namespace vekgraph {
namespace {

using Locator = orb::CompNode::Locator;

orb::GraphFileFacts inspect(const std::string& path, const orb::GraphLoadConfig& config,
                            bool allow_unknown) {
    const auto input = open_input(path);
    try {
        return orb::inspect_graph_file(*input, config, allow_unknown);
    } catch (const orb::GraphFileError& error) {
        throw tools::BadFile(path + ": " + error.what());
    }
}

}  // namespace

std::unique_ptr<orb::InputFile> open_input(const std::string& path) {
    auto input = orb::InputFile::open(path);
    if (!input)
        throw tools::BadUse(path + ": not a file that can be read");
    return input;
}

orb::GraphLoadConfig load_config(const FileOptions& options) {
    orb::GraphLoadConfig config;
    config.max_bytes_without_value = options.max_input_bytes;
    if (options.node.empty())
        return config;
    const auto locator = Locator::try_parse(options.node);
    if (!locator || locator->type != orb::CompNode::DeviceType::CPU || locator->stream < 0)
        throw tools::BadUse("--node: " + options.node +
                            " is no CPU node such as cpu0 or cpu:default");
    config.node_mapper = [node = options.node](const Locator&) {
        return orb::CompNode::load(node);
    };
    return config;
}

orb::GraphFileFacts inspect_strictly(const FileOptions& options) {
    return inspect(options.path, load_config(options), false);
}

orb::GraphFileFacts inspect_what_is_known(const FileOptions& options) {
    orb::GraphLoadConfig config;
    config.max_bytes_without_value = UINT64_MAX;  // no memory is taken for them
    config.node_mapper = [](const Locator&) { return orb::CompNode::default_cpu(); };
    return inspect(options.path, config, true);
}

std::string title_of(const orb::OperatorRecord* record) {
    if (!record)
        return "unknown operator";
    return *record->title == '\0' ? "operator without a name" : record->title;
}

// Operators that never stand in a file have only the name of their class.
std::string title_of(const orb::GraphOperator& op) {
    const auto* record = orb::OperatorRegistry::instance().find_by_type(op.type_record());
    return record && *record->title != '\0' ? record->title : op.type_record()->name;
}

bool is_input(const orb::TensorFacts& tensor) {
    return tensor.method == orb::TensorMethod::INPUT;
}

bool is_parameter(const orb::TensorFacts& tensor) {
    return tensor.method == orb::TensorMethod::SHARED ||
           tensor.method == orb::TensorMethod::PARAMETER ||
           (tensor.method == orb::TensorMethod::CONSTANT && !tensor.header.name.empty());
}

void write_tensor_fields(tools::JsonWriter& json, const orb::TensorHeader& tensor) {
    json.key("name").value(tensor.name);
    json.key("dtype").value(dtype_text(tensor.layout.dtype));
    json.key("shape");
    write_shape(json, tensor.layout);
    json.key("bytes").value(uint64_t{tensor.bytes});
    json.key("node").value(tensor.node.to_string());
}

}  // namespace vekgraph
