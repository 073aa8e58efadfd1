// The frame of a program's main function.
#pragma once

#include <functional>
#include <optional>

namespace CLI {
class App;
}

namespace tools {

// What `body` returns is the exit status; what it throws is one line on the standard error that
// begins with the program's name, and status 2 for BadUse, 1 for everything else.
int run_program(const char* name, const std::function<int()>& body);

// Throws BadUse for what the options do not allow. The exit status where help was asked for and
// printed.
std::optional<int> parse(CLI::App& app, int nr_words, char** words);

}  // namespace tools
