// The text of the error that a call raises.
#pragma once

#include <string>

#include "store/error.h"

template <typename Call>
std::string error_of(const Call& call) {
    try {
        call();
    } catch (const vek::Error& error) {
        return error.what();
    }
    return "no error";
}
