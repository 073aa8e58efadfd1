// The sub-commands, one file each. Each function adds its own with its options and, as its
// callback, what carries it out once the whole line is parsed: it prints to the standard output, or
// throws one of common/failure.h.
#pragma once

namespace CLI {
class App;
}

namespace commands {

void add_build(CLI::App& app);
void add_info(CLI::App& app);
void add_convert(CLI::App& app);
void add_export(CLI::App& app);
void add_search(CLI::App& app);
void add_calibrate(CLI::App& app);
void add_bench(CLI::App& app);

}  // namespace commands
