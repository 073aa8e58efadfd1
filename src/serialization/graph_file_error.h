// What can be wrong with the bytes of a graph file. Readers throw it; `GraphLoader::load`, which
// trusts its files, stops the process on it, and tools report it.
#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>

namespace orb {

enum class GraphFileFault : uint32_t {
    IO,         // the system refused a read or write
    TRUNCATED,  // fewer bytes than the field has
    MAGIC,      // not a graph file
    FEATURES,   // a reserved feature bit
    ZERO_HASH,
    OTHER_HASH,            // a repeated load of a loader met another model
    NUMBER,                // a varint of more than 64 bits
    STRING,                // longer than the limit
    COUNT,                 // more entries than the bytes left can hold
    INDEX,                 // outside its table
    NODE,                  // not a locator, or none that can be loaded
    DTYPE,                 // an unknown number, or a scale that is not finite and positive
    SHAPE,                 // a rank outside 1 to 7, or more bytes than a word counts
    VALUE,                 // missing, or larger than what a header alone may ask for
    UNKNOWN_OPERATOR,      // an id that is in no row of the registry
    UNAVAILABLE_OPERATOR,  // a known one that this library cannot make
    OPERATOR,              // the inputs or parameters are not what the operator has
    END_MARK,              // the record does not end where its fields do
    SHARED_COUNT,          // more or fewer shared tensors than the header says
};

class GraphFileError final : public std::exception {
public:
    // `offset` is where the field begins that is wrong; `record` the operator's position, if any.
    GraphFileError(GraphFileFault fault, uint64_t offset, std::optional<uint64_t> record);

    GraphFileFault fault() const { return m_fault; }
    uint64_t offset() const { return m_offset; }
    std::optional<uint64_t> record() const { return m_record; }
    // Such as "byte 61, operator 2: the record does not end with its mark".
    const char* what() const noexcept override { return m_text.c_str(); }

private:
    GraphFileFault m_fault;
    uint64_t m_offset;
    std::optional<uint64_t> m_record;
    std::string m_text;
};

}  // namespace orb
