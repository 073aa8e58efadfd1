// The exception of the search library: a status code with a composed text. Thrown by api, group and
// store; the call frame turns it into the status.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "vekfind/vekfind.h"

namespace vek {

class Error final : public std::exception {
public:
    // `function` is the full signature of the raising function, a constant of the design: compilers
    // spell theirs differently.
    Error(int code, const std::string& message, const char* function);

    int32_t code() const noexcept { return m_code; }
    // "Error[<code>] <message> at [<function>]"
    const char* what() const noexcept override { return m_message.c_str(); }

private:
    int32_t m_code;
    std::string m_message;
};

}  // namespace vek
