// `vekgraph info`: what a graph file says of itself and what it holds.
#include <algorithm>
#include <iostream>
#include <map>

#include "common/json.h"
#include "common/text.h"
#include "vekgraph/commands.h"
#include "vekgraph/graph_file.h"
#include "vekgraph/text.h"

namespace vekgraph {
namespace {

struct TypeCount {
    uint64_t id = 0;
    const orb::OperatorRecord* record = nullptr;
    uint64_t count = 0;
};

// The most frequent first; ties by id.
std::vector<TypeCount> count_types(const orb::GraphFileFacts& facts) {
    std::map<uint64_t, TypeCount> by_id;
    for (const orb::OperatorFacts& op : facts.operators) {
        TypeCount& type = by_id[op.head.type_id];
        type = {op.head.type_id, op.head.record, type.count + 1};
    }
    std::vector<TypeCount> types;
    types.reserve(by_id.size());
    for (const auto& entry : by_id)
        types.push_back(entry.second);
    std::stable_sort(types.begin(), types.end(),
                     [](const TypeCount& a, const TypeCount& b) { return a.count > b.count; });
    return types;
}

std::map<std::string, uint64_t> count_dtypes(const orb::GraphFileFacts& facts) {
    std::map<std::string, uint64_t> dtypes;
    for (const orb::TensorFacts& tensor : facts.tensors)
        ++dtypes[dtype_text(tensor.header.layout.dtype)];
    return dtypes;
}

struct FeatureName {
    uint8_t feature;
    const char* text;
};
const FeatureName FEATURES[] = {
    {orb::graph_feature::ALIGNED_VALUES, "aligned values"},
    {orb::graph_feature::DTYPE_TABLE, "data type table"},
    {orb::graph_feature::PRIORITIES, "priorities"},
    {orb::graph_feature::NODES, "nodes"},
    {orb::graph_feature::OUTPUT_DTYPES, "output data types"},
};

std::string feature_text(const orb::GraphFileHeader& header) {
    std::string text;
    for (const FeatureName& row : FEATURES) {
        if (header.has(row.feature))
            text += (text.empty() ? "" : ", ") + std::string(row.text);
    }
    return text.empty() ? "none" : text;
}

// Why nothing is told of what stands behind an operator.
std::string stop_text(const orb::GraphFileFacts& facts) {
    const orb::RecordHead& head = *facts.stopped_at;
    return "operator " + std::to_string(facts.operators.size()) + " at byte " +
           std::to_string(head.offset) + " is " + tools::hex(head.type_id) + " (" +
           title_of(head.record) + "), which is not available: where it ends cannot be known";
}

void print_header(const std::string& path, uint64_t bytes, const orb::GraphFileFacts& facts) {
    const orb::GraphFileHeader& header = facts.header;
    std::cout << tools::printable(path) << ": graph file of " << bytes << " bytes\n"
              << "version: " << header.version << "\nfeatures: " << feature_text(header)
              << "\nhash: " << tools::hex(header.hash) << "\noperators: " << header.nr_operators
              << "\nshared tensors: " << header.nr_shared_tensors << '\n';
    if (facts.stopped_at)
        std::cout << "stopped: " << stop_text(facts) << '\n';
    else
        std::cout << "bytes behind the graph: " << bytes - facts.end << '\n';
}

void print_section(const char* title, const tools::Table& table) {
    std::cout << '\n' << title << ":\n";
    if (table.is_empty())
        std::cout << "  none\n";
    else
        table.print(std::cout);
}

void print_operators(const orb::GraphFileFacts& facts) {
    tools::Table table("rll", {"count", "id", "operator"});
    for (const TypeCount& type : count_types(facts))
        table.add({std::to_string(type.count), tools::hex(type.id), title_of(type.record)});
    print_section("operators by type", table);
}

void print_tensors(const orb::GraphFileFacts& facts) {
    tools::Table dtypes("rl", {"tensors", "data type"});
    for (const auto& [name, count] : count_dtypes(facts))
        dtypes.add({std::to_string(count), name});
    print_section("data types", dtypes);

    tools::Table inputs("lll", {"name", "tensor", "node"});
    tools::Table parameters("llrll", {"name", "tensor", "bytes", "node", "shared"});
    uint64_t nr_constants = 0, constant_bytes = 0, parameter_bytes = 0;
    for (const orb::TensorFacts& tensor : facts.tensors) {
        const orb::TensorHeader& header = tensor.header;
        const std::string name = tools::printable(header.name), text = tensor_text(header.layout);
        if (is_input(tensor)) {
            inputs.add({name, text, header.node.to_string()});
        } else if (is_parameter(tensor)) {
            parameters.add({name, text, std::to_string(header.bytes), header.node.to_string(),
                            tensor.method == orb::TensorMethod::SHARED ? "yes" : "no"});
            parameter_bytes += header.bytes;
        } else {
            ++nr_constants;
            constant_bytes += header.bytes;
        }
    }
    print_section("inputs", inputs);
    print_section("parameters", parameters);
    std::cout << "  " << parameter_bytes << " bytes in all; " << nr_constants
              << " constants without a name have " << constant_bytes << " bytes\n";
}

void print_outputs(const orb::GraphFileFacts& facts) {
    tools::Table table("rlr", {"output", "name", "id"});
    for (size_t i = 0; i < facts.outputs.size(); ++i)
        table.add({std::to_string(i), tools::printable(facts.var_name(facts.outputs[i].var)),
                   std::to_string(facts.outputs[i].id)});
    print_section("outputs", table);
}

void write_header(tools::JsonWriter& json, const orb::GraphFileFacts& facts) {
    const orb::GraphFileHeader& header = facts.header;
    json.key("version").value(uint64_t{header.version});
    json.key("features").value(uint64_t{header.features});
    json.key("hash").value(tools::hex(header.hash));
    json.key("nr_operators").value(header.nr_operators);
    json.key("nr_shared_tensors").value(header.nr_shared_tensors);
    json.key("stopped");
    if (!facts.stopped_at) {
        json.null();
        return;
    }
    json.begin_object();
    json.key("operator").value(uint64_t{facts.operators.size()});
    json.key("byte").value(facts.stopped_at->offset);
    json.key("id").value(tools::hex(facts.stopped_at->type_id));
    json.key("title").value(title_of(facts.stopped_at->record));
    json.end_object();
}

void write_operators(tools::JsonWriter& json, const orb::GraphFileFacts& facts) {
    json.key("operators").begin_array();
    for (const TypeCount& type : count_types(facts)) {
        json.begin_object();
        json.key("id").value(tools::hex(type.id));
        json.key("title").value(title_of(type.record));
        json.key("count").value(type.count);
        json.end_object();
    }
    json.end_array();
}

void write_tensors(tools::JsonWriter& json, const orb::GraphFileFacts& facts) {
    const auto list = [&](const char* key, auto is_wanted) {
        json.key(key).begin_array();
        for (const orb::TensorFacts& tensor : facts.tensors) {
            if (!is_wanted(tensor))
                continue;
            json.begin_object();
            write_tensor_fields(json, tensor.header);
            json.key("shared").value(tensor.method == orb::TensorMethod::SHARED);
            json.end_object();
        }
        json.end_array();
    };
    json.key("dtypes").begin_object();
    for (const auto& [name, count] : count_dtypes(facts))
        json.key(name.c_str()).value(count);
    json.end_object();
    list("inputs", is_input);
    list("parameters", is_parameter);
    list("constants",
         [](const orb::TensorFacts& tensor) { return !is_input(tensor) && !is_parameter(tensor); });
}

void write_outputs(tools::JsonWriter& json, const orb::GraphFileFacts& facts) {
    json.key("outputs").begin_array();
    for (const orb::OutputRecord& output : facts.outputs) {
        json.begin_object();
        json.key("name").value(facts.var_name(output.var));
        json.key("id").value(output.id);
        json.end_object();
    }
    json.end_array();
}

}  // namespace

int info(const FileOptions& file) {
    const orb::GraphFileFacts facts = inspect_what_is_known(file);
    const uint64_t bytes = open_input(file.path)->bytes_left();
    if (!file.json) {
        print_header(file.path, bytes, facts);
        print_operators(facts);
        print_tensors(facts);
        print_outputs(facts);
        return 0;
    }
    tools::JsonWriter json(std::cout);
    json.begin_object();
    json.key("file").value(file.path);
    json.key("bytes").value(bytes);
    write_header(json, facts);
    write_operators(json, facts);
    write_tensors(json, facts);
    write_outputs(json, facts);
    json.end_object();
    json.finish();
    return 0;
}

}  // namespace vekgraph
