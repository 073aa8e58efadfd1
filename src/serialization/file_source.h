// The bytes of a graph file under the parser: knows where the last field began and in which record
// it stands, so that errors can say it. Nothing is read that the file does not have.
#pragma once

#include <optional>

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
    // More bytes of the same field.
    void read_more(void* buffer, size_t bytes) {
        check_left(bytes);
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
        m_field_begin = m_file.tell();
        check_left(bytes);
    }
    void check_left(uint64_t bytes) const {
        if (bytes > m_file.bytes_left())
            fail(GraphFileFault::TRUNCATED);
    }

    InputFile& m_file;
    uint64_t m_field_begin = 0;
    std::optional<uint64_t> m_record;
};

}  // namespace orb
