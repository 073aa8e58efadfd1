// Options that several sub-commands have.
#pragma once

#include <string>

#include "features/preparation.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace commands {

// What is done to rows of floats.
struct RowOptions {
    std::string mean;
    bool normalize = false, allow_nan = false;

    bool is_any() const { return !mean.empty() || normalize || allow_nan; }
};

// Gives --mean.
CLI::Option* add_row_options(CLI::App& command, RowOptions& options);

features::Preparation preparation_of(const RowOptions& options, size_t dim);

}  // namespace commands
