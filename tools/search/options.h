// The options that `vekfind search` and vekfind-mpi have in common.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace search {

struct Options {
    uint64_t k = 10;
    std::optional<float> threshold;
    std::optional<float> scale, bias;  // before those beside the file
    std::optional<bool> normalize;     // before what stands beside the file
    std::string mean;                  // file of the mean to subtract from the queries
    std::string ids, tags;             // files for a file of features; a group file has its own
    std::optional<uint64_t> tag;
    bool int8 = false;
    bool allow_not_finite = false;
    uint64_t nr_threads = 1;
    std::string output;  // empty for a table on the standard output
    bool tell_times = false;
};

void add_options(CLI::App& app, Options& options);

// BadUse for what is wrong whatever the files hold.
void require_sense(const Options& options);

}  // namespace search
