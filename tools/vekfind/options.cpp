#include "vekfind/options.h"

#include <CLI/CLI.hpp>

namespace commands {

CLI::Option* add_row_options(CLI::App& command, RowOptions& options) {
    CLI::Option* mean =
        command.add_option("--mean", options.mean,
                           "the mean that `convert --center` has kept, to subtract from each row");
    mean->type_name("FILE.npy");
    command.add_flag("--normalize", options.normalize, "bring each row to length 1");
    command.add_flag("--allow-nan", options.allow_nan,
                     "let rows with NaN, infinity or elements too large to square pass");
    return mean;
}

features::Preparation preparation_of(const RowOptions& options, size_t dim) {
    features::Preparation preparation;
    preparation.allow_not_finite = options.allow_nan;
    preparation.normalize = options.normalize;
    if (!options.mean.empty())
        preparation.mean = features::read_mean(options.mean, dim);
    return preparation;
}

}  // namespace commands
