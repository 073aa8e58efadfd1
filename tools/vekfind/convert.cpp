#include <CLI/CLI.hpp>

#include "common/failure.h"
#include "vekfind/commands.h"

namespace commands {

void add_convert(CLI::App& app) {
    CLI::App* command = app.add_subcommand("convert", "to come");
    command->callback([] { throw tools::BadUse("not yet"); });
}

}  // namespace commands
