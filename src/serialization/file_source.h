// The bytes of a graph file under the parser: knows where the last field began and in which record
// it stands, so that errors can say it. Nothing is read that the file does not have.
#pragma once

#include <optional>

#include "serialization/byte_forms.h"
#include "serialization/file.h"
#include "serialization/graph_file_error.h"

namespace orb {

class FileSource {
public:
    explicit FileSource(InputFile& file) : m_file(file) {}

    void read(void* buffer, size_t bytes) {
        begin_field(bytes);
        m_file.read(buffer, bytes);
    }
    std::shared_ptr<const uint8_t> read_shared(size_t bytes) {
        begin_field(bytes);
        return m_file.read_shared(bytes);
    }
    void skip(uint64_t bytes) {
        begin_field(bytes);
        m_file.skip(bytes);
    }
    // What the function reads, as one field.
    template <typename Read>
    auto read_field(const Read& read) {
        m_field_begin = m_file.tell();
        m_is_in_field = true;
        const auto result = read(*this);
        m_is_in_field = false;
        return result;
    }
    uint64_t tell() const { return m_file.tell(); }
    uint64_t bytes_left() const { return m_file.bytes_left(); }
    InputFile& file() { return m_file; }

    void begin_record(uint64_t record) { m_record = record; }
    void end_records() { m_record.reset(); }

    // At the field that was read last.
    GraphFileError error(GraphFileFault fault) const { return {fault, m_field_begin, m_record}; }
    [[noreturn]] void fail(GraphFileFault fault) const { throw error(fault); }
    [[noreturn]] void fail_at(GraphFileFault fault, uint64_t offset) const {
        throw GraphFileError(fault, offset, m_record);
    }

private:
    void begin_field(uint64_t bytes) {
        if (!m_is_in_field && bytes != 0)
            m_field_begin = m_file.tell();
        if (bytes > m_file.bytes_left())
            fail(GraphFileFault::TRUNCATED);
    }

    InputFile& m_file;
    uint64_t m_field_begin = 0;
    bool m_is_in_field = false;
    std::optional<uint64_t> m_record;
};

// A number is one field, of however many bytes.
inline uint64_t read_varint(FileSource& source) {
    return source.read_field(read_varint<FileSource>);
}

}  // namespace orb
