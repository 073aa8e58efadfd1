// vekfind: makes groups of features from files, looks into them and searches them. Exit status: 0,
// 1 for a bad file, 2 for bad use.
#include <CLI/CLI.hpp>

#include "common/command_line.h"
#include "common/failure.h"
#include "vekfind/commands.h"

namespace {

int run_command(int nr_words, char** words) {
    CLI::App app("Exact search for the most similar feature vectors, from files.", "vekfind");
    app.require_subcommand(0, 1);
    app.set_version_flag("--version", VEKFIND_VERSION);
    commands::add_build(app);
    commands::add_info(app);
    commands::add_convert(app);
    commands::add_export(app);
    commands::add_search(app);
    commands::add_calibrate(app);
    commands::add_bench(app);
    if (const auto status = tools::parse(app, nr_words, words))
        return *status;
    if (app.get_subcommands().empty())
        throw tools::BadUse("a command is needed; see --help");
    return 0;
}

}  // namespace

int main(int nr_words, char** words) {
    return tools::run_program("vekfind", [=] { return run_command(nr_words, words); });
}
