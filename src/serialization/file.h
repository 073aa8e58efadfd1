// Where graph files are read from and written to. A file belongs to one thread at a time; what the
// system refuses is a `GraphFileError`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "graph/tensor/tensor.h"

namespace orb {

class InputFile {
public:
    virtual ~InputFile() = default;

    // Back to the first byte.
    virtual void rewind() = 0;
    virtual void skip(uint64_t bytes) = 0;
    // Exactly so many bytes.
    virtual void read(void* buffer, size_t bytes) = 0;
    // Bytes from the first one to the next to be read.
    virtual uint64_t tell() const = 0;
    // The bytes of a contiguous tensor, to the start of the storage, which grows to hold them.
    virtual void read_into_tensor(HostTensorStorage& storage, const kern::TensorLayout& layout);
    // The next bytes in memory that may be kept.
    virtual std::shared_ptr<const uint8_t> read_shared(size_t bytes);
    virtual uint64_t bytes_left() const = 0;

    // A regular file; null when it cannot be opened.
    static std::unique_ptr<InputFile> open(const std::string& path);
    // The memory must outlive the file; shared reads are copies.
    static std::unique_ptr<InputFile> from_memory(const void* bytes, size_t size);
};

class OutputFile {
public:
    virtual ~OutputFile() = default;

    virtual void write(const void* buffer, size_t bytes) = 0;
    // To a position that `tell` gave.
    virtual void seek(uint64_t position) = 0;
    virtual uint64_t tell() const = 0;

    // A new or emptied file; null when it cannot be opened.
    static std::unique_ptr<OutputFile> create(const std::string& path);
    // Writes to the vector, which must outlive the file; begins behind what it holds.
    static std::unique_ptr<OutputFile> to_memory(std::vector<uint8_t>& bytes);
};

}  // namespace orb
