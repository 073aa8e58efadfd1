// What ends a command: text for one line on the standard error, and the exit status that goes with
// it.
#pragma once

#include <stdexcept>

namespace vekgraph {

// The command cannot be carried out as it was given: status 2.
class BadUse final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A file is not what it should be, or its graph cannot be built or run: status 1.
class BadFile final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace vekgraph
