// What ends a program: text for one line on the standard error, and the exit status that goes with
// it.
#pragma once

#include <stdexcept>

namespace tools {

// The program cannot do what it was asked for as it was asked: status 2.
class BadUse final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A file is not what it should be, or cannot be read, written or worked on: status 1.
class BadFile final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace tools
