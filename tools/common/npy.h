// Arrays in .npy files, versions 1 to 3: dense, row-major, little endian. Whatever is wrong with a
// file is a BadFile with its name and byte; memory is taken only for bytes that the file has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/input_file.h"

namespace npy {

enum class ElementType {
    FLOAT16,
    FLOAT32,
    FLOAT64,
    INT8,
    UINT8,
    INT16,
    INT32,
    INT64,
    UINT16,
    UINT32,
    UINT64
};

const char* name_of(ElementType type);  // such as "float32"
size_t bytes_of(ElementType type);

struct Array {
    ElementType type = ElementType::FLOAT32;
    std::vector<size_t> shape;   // empty for a single number
    std::vector<uint8_t> bytes;  // of all elements, the last axis varying fastest
};

// Where the elements of a file are, for whoever reads them in pieces.
struct Header {
    ElementType type = ElementType::FLOAT32;
    std::vector<uint64_t> shape;
    uint64_t offset = 0;  // of the first element
    uint64_t bytes = 0;   // of all elements; the file ends behind them
};

Header read_header(const tools::InputFile& file);

// The whole file is one array.
Array read(const std::string& path);

// What a file of version 1 begins with; the elements follow.
std::string header_text(ElementType type, const std::vector<uint64_t>& shape);

// A new or replaced file of version 1. `bytes` are those of all elements.
void write(const std::string& path, ElementType type, const std::vector<size_t>& shape,
           const void* bytes);

}  // namespace npy
