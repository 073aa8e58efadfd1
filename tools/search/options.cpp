#include "search/options.h"

#include <CLI/CLI.hpp>
#include <cmath>

#include "common/failure.h"
#include "search/output.h"

namespace search {

void add_options(CLI::App& app, Options& options) {
    app.add_option("-k", options.k, "most rows to find for a query")->capture_default_str();
    app.add_option("--threshold", options.threshold, "least similarity");
    app.add_option("--scale", options.scale,
                   "similarity is 1 / (1 + exp(scale * d2 + bias)) at squared distance d2; "
                   "without the option as it stands beside the group file, in GROUP.vek.json");
    app.add_option("--bias", options.bias, "see --scale");
    app.add_flag_function(
        "--normalize,!--no-normalize", [&options](int64_t count) { options.normalize = count > 0; },
        "bring queries to length 1, and rows of a file of features; without the option as it "
        "stands beside the group file");
    app.add_option("--mean", options.mean,
                   ".npy of `vekfind convert --center`: the mean to subtract from the queries")
        ->type_name("FILE");
    app.add_option("--ids", options.ids, "ids of a file of features; row numbers without it")
        ->type_name("FILE");
    CLI::Option* tags =
        app.add_option("--tags", options.tags, "tags of a file of features")->type_name("FILE");
    CLI::Option* tag = app.add_option(
        "--tag", options.tag, "only rows whose tag, as a little-endian number, is this one");
    tags->needs(tag);
    app.add_flag("--int8", options.int8, "search 8-bit integers as they are, not as floats");
    app.add_flag("--allow-nan", options.allow_not_finite, "let features with NaN or infinity pass");
    app.add_option("--threads", options.nr_threads,
                   "threads to search with; each holds a part of the rows")
        ->capture_default_str()
        ->check(CLI::Range(1, 1024));
    app.add_option("-o,--output", options.output,
                   "a .csv, .json, .npz, .ivecs or .txt file; without it a table is printed")
        ->type_name("FILE");
    app.add_flag("--times", options.tell_times, "tell on the standard error what took how long");
}

void require_sense(const Options& options) {
    constexpr uint64_t MOST = 1073741823;  // the library's
    if (options.k == 0 || options.k > MOST)
        throw tools::BadUse("-k must be from 1 to " + std::to_string(MOST));
    if (options.threshold && std::isnan(*options.threshold))
        throw tools::BadUse("--threshold is no number");
    if (options.scale && !(*options.scale > 0 && std::isfinite(*options.scale)))
        throw tools::BadUse("--scale must be above 0");
    if (options.bias && !std::isfinite(*options.bias))
        throw tools::BadUse("--bias is no number");
    if (options.int8 && (options.normalize.value_or(false) || !options.mean.empty()))
        throw tools::BadUse("8-bit integers are neither normalized nor centered");
    if (!options.output.empty())
        require_known_format(options.output);
}

}  // namespace search
