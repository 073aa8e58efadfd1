// What the program can do with a graph file. Each command prints to the standard output and gives
// the exit status, or throws one of failure.h.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vekgraph {

struct FileOptions {
    std::string path;
    bool json = false;
    std::string node;  // for everything in the file; empty for the nodes that the file names
    uint64_t max_input_bytes = uint64_t{1} << 30;  // of a tensor without a value
};

struct DrawOptions {
    std::string output;  // empty for the standard output
};

struct RunOptions {
    std::vector<std::string> inputs;  // NAME=FILE
    std::string output_folder;        // empty to write nothing
    uint64_t nr_runs = 1;
    bool record = false;
    bool profile = false;
};

int info(const FileOptions& file);
int check(const FileOptions& file);
int draw(const FileOptions& file, const DrawOptions& options);
int run(const FileOptions& file, const RunOptions& options);

}  // namespace vekgraph
