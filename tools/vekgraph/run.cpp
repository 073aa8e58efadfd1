// `vekgraph run`: the outputs of a graph for inputs from .npy files, and how long it takes.
#include <cmath>
#include <filesystem>
#include <iostream>

#include "common/failure.h"
#include "common/json.h"
#include "common/text.h"
#include "vekgraph/commands.h"
#include "vekgraph/graph_file.h"
#include "vekgraph/graph_run.h"
#include "vekgraph/text.h"

namespace vekgraph {
namespace {

struct OutputNames {
    std::vector<std::string> in_graph;
    std::vector<std::string> files;
};

OutputNames names_of_outputs(const orb::GraphFileFacts& facts) {
    OutputNames names;
    for (const orb::OutputRecord& output : facts.outputs)
        names.in_graph.push_back(facts.var_name(output.var));
    names.files = output_file_names(names.in_graph);
    return names;
}

void make_folder(const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error || !std::filesystem::is_directory(folder))
        throw tools::BadUse("--output-dir: " + folder + " cannot be made");
}

std::string path_of(const RunOptions& options, const std::string& file) {
    return (std::filesystem::path(options.output_folder) / file).string();
}

void write_outputs(const RunOptions& options, const OutputNames& names, const RunResult& result) {
    for (size_t i = 0; i < result.outputs.size(); ++i) {
        const OutputArray& output = result.outputs[i];
        const kern::TensorShape& shape = output.shape;
        npy::write(path_of(options, names.files[i]), *element_type_of(output.dtype),
                   {shape.shape, shape.shape + shape.ndim}, output.bytes.data());
    }
}

double median(const std::vector<double>& sorted) {
    const size_t half = sorted.size() / 2;
    return sorted.size() % 2 == 1 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
}

double total_seconds(const std::vector<ProfileRow>& rows) {
    double total = 0;
    for (const ProfileRow& row : rows)
        total += row.seconds;
    return total;
}

std::string percent(double part, double whole) {
    return whole > 0 ? std::to_string(std::lround(part / whole * 100)) + " %" : "";
}

void print_profile(const RunResult& result) {
    tools::Table table("rrrrlll", {"share", "time", "steps", "a step", "operator", "node", "name"});
    const double total = total_seconds(result.profile);
    for (const ProfileRow& row : result.profile) {
        const double a_step = row.seconds / static_cast<double>(row.nr_steps);
        table.add({percent(row.seconds, total), tools::seconds_text(row.seconds),
                   std::to_string(row.nr_steps), tools::seconds_text(a_step), row.title, row.node,
                   tools::printable(row.name)});
    }
    std::cout << '\n';
    table.print(std::cout);
}

void print_result(const RunOptions& options, const OutputNames& names, const RunResult& result) {
    std::cout << "load: " << tools::seconds_text(result.load_seconds)
              << "\nfirst run: " << tools::seconds_text(result.first_seconds) << '\n';
    if (!result.more_seconds.empty())
        std::cout << result.more_seconds.size() << " more: median "
                  << tools::seconds_text(median(result.more_seconds)) << ", fastest "
                  << tools::seconds_text(result.more_seconds.front()) << '\n';
    if (options.record)
        std::cout << "recorded: "
                  << (result.was_recorded ? "yes" : "no, this graph cannot be recorded") << '\n';
    tools::Table table("rlll", {"output", "name", "tensor", "file"});
    for (size_t i = 0; i < result.outputs.size(); ++i) {
        const OutputArray& output = result.outputs[i];
        table.add({std::to_string(i), tools::printable(names.in_graph[i]),
                   dtype_text(output.dtype) + " " + output.shape.to_string(),
                   options.output_folder.empty() ? "" : path_of(options, names.files[i])});
    }
    table.print(std::cout);
    if (options.profile)
        print_profile(result);
}

void write_output_list(tools::JsonWriter& json, const RunOptions& options, const OutputNames& names,
                       const RunResult& result) {
    json.key("outputs").begin_array();
    for (size_t i = 0; i < result.outputs.size(); ++i) {
        json.begin_object();
        json.key("name").value(names.in_graph[i]);
        json.key("dtype").value(dtype_text(result.outputs[i].dtype));
        json.key("shape");
        write_shape(json, result.outputs[i].shape);
        if (!options.output_folder.empty())
            json.key("file").value(path_of(options, names.files[i]));
        json.end_object();
    }
    json.end_array();
}

void write_profile(tools::JsonWriter& json, const RunResult& result) {
    json.key("profile").begin_array();
    for (const ProfileRow& row : result.profile) {
        json.begin_object();
        json.key("name").value(row.name);
        json.key("operator").value(row.title);
        json.key("node").value(row.node);
        json.key("steps").value(row.nr_steps);
        json.key("seconds").value(row.seconds);
        json.end_object();
    }
    json.end_array();
}

void write_result(const std::string& path, const RunOptions& options, const OutputNames& names,
                  const RunResult& result) {
    tools::JsonWriter json(std::cout);
    json.begin_object();
    json.key("file").value(path);
    json.key("load_seconds").value(result.load_seconds);
    json.key("first_seconds").value(result.first_seconds);
    json.key("runs").value(options.nr_runs);
    if (!result.more_seconds.empty()) {
        json.key("median_seconds").value(median(result.more_seconds));
        json.key("fastest_seconds").value(result.more_seconds.front());
    }
    json.key("recorded").value(result.was_recorded);
    write_output_list(json, options, names, result);
    if (options.profile)
        write_profile(json, result);
    json.end_object();
    json.finish();
}

}  // namespace

int run(const FileOptions& file, const RunOptions& options) {
    if (options.nr_runs == 0)
        throw tools::BadUse("--repeat: there is at least one run");
    const orb::GraphFileFacts facts = inspect_strictly(file);
    const std::vector<InputArray> inputs = read_inputs(facts, options.inputs);
    const OutputNames names = names_of_outputs(facts);
    if (!options.output_folder.empty())
        make_folder(options.output_folder);
    const ChildEnd end = run_in_child([&](ChildProgress& progress) {
        const RunResult result = run_graph(file, options, inputs, progress);
        progress.stage = ChildProgress::WRITING;
        if (!options.output_folder.empty())
            write_outputs(options, names, result);
        if (file.json)
            write_result(file.path, options, names, result);
        else
            print_result(options, names, result);
    });
    if (end.has_finished)
        return 0;
    const std::string text = file.path + ": " + stop_text(facts, end);
    if (end.exit_status == 2)
        throw tools::BadUse(text);
    throw tools::BadFile(text);
}

}  // namespace vekgraph
