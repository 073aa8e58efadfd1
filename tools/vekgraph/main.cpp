// vekgraph: looks into graph files, checks, draws and runs them. Exit status: 0, 1 for a bad file,
// 2 for bad use.
#include <CLI/CLI.hpp>

#include "common/command_line.h"
#include "common/failure.h"
#include "vekgraph/commands.h"

namespace {

using vekgraph::FileOptions;

CLI::App* add_command(CLI::App& app, const char* name, const char* text, FileOptions& file) {
    CLI::App* command = app.add_subcommand(name, text);
    command->add_option("FILE", file.path, "the graph file")->required()->type_name("");
    command->add_flag("--json", file.json, "one JSON object instead of text");
    return command;
}

void add_load_options(CLI::App& command, FileOptions& file) {
    command.add_option("--node", file.node,
                       "node for everything in the file, such as cpu0 or cpu:default; without it "
                       "the nodes that the file names");
    command
        .add_option("--max-input-bytes", file.max_input_bytes,
                    "what a tensor without a value may take")
        ->capture_default_str();
}

void add_run_options(CLI::App& command, vekgraph::RunOptions& options) {
    command
        .add_option("--input", options.inputs,
                    "NAME=FILE.npy, once for each input; the shape may differ from the file's")
        ->allow_extra_args(false)
        ->type_name("NAME=FILE");
    command.add_option("--output-dir", options.output_folder,
                       "folder to write each output to, as NAME.npy");
    command.add_option("--repeat", options.nr_runs, "number of runs")->capture_default_str();
    CLI::Option* record = command.add_flag(
        "--record", options.record, "record the first run on a node with a worker and replay it");
    command.add_flag("--profile", options.profile, "list the time of each operator")
        ->excludes(record);
}

int run_command(int nr_words, char** words) {
    CLI::App app("Looks into graph files, checks, draws and runs them.", "vekgraph");
    app.require_subcommand(0, 1);
    FileOptions file;
    vekgraph::DrawOptions draw_options;
    vekgraph::RunOptions run_options;
    CLI::App* info = add_command(app, "info", "list what the file holds", file);
    CLI::App* check =
        add_command(app, "check", "tell whether the file is whole and its graph can be made", file);
    add_load_options(*check, file);
    CLI::App* draw = add_command(app, "draw", "draw the graph", file);
    draw->add_option("-o,--output", draw_options.output,
                     "a .dot file, or .svg or .png with graphviz; without it dot text is printed");
    CLI::App* run = add_command(app, "run", "run the graph on .npy files", file);
    add_load_options(*run, file);
    add_run_options(*run, run_options);
    if (const auto status = tools::parse(app, nr_words, words))
        return *status;
    if (app.get_subcommands().empty())
        throw tools::BadUse("a command is needed: info, check, draw or run; see --help");
    if (*info)
        return vekgraph::info(file);
    if (*check)
        return vekgraph::check(file);
    return *draw ? vekgraph::draw(file, draw_options) : vekgraph::run(file, run_options);
}

}  // namespace

int main(int nr_words, char** words) {
    return tools::run_program("vekgraph", [=] { return run_command(nr_words, words); });
}
