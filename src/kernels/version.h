// The version of the kernel library's interface, for the layers that are built against it.
#pragma once

#include <cstdint>

namespace kern {

constexpr uint32_t VERSION_MAJOR = 8;
constexpr uint32_t VERSION_MINOR = 14;
constexpr uint32_t VERSION_PATCH = 0;

}  // namespace kern
