// Arrays in .npy files, versions 1 to 3: dense, row-major, little endian. Whatever is wrong with a
// file is an `npy::Error` with its name and byte; memory is taken only for bytes that the file has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace npy {

enum class ElementType { FLOAT16, FLOAT32, FLOAT64, INT8, UINT8, INT16, INT32 };

const char* name_of(ElementType type);  // such as "float32"
size_t bytes_of(ElementType type);

struct Array {
    ElementType type = ElementType::FLOAT32;
    std::vector<size_t> shape;   // empty for a single number
    std::vector<uint8_t> bytes;  // of all elements, the last axis varying fastest
};

class Error final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The whole file is one array.
Array read(const std::string& path);

// A new or replaced file of version 1. `bytes` are those of all elements.
void write(const std::string& path, ElementType type, const std::vector<size_t>& shape,
           const void* bytes);

}  // namespace npy
