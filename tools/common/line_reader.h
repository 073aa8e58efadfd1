// The lines of a text file, one after the other, without their ends.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/input_file.h"

namespace tools {

class LineReader {
public:
    explicit LineReader(const InputFile& file) : m_file(file) {}

    // The next line that has more than blanks, valid until the next call; false at the end. What is
    // behind the last line's end is a line, too.
    bool next(std::string_view& line);
    // Of the line's first byte in the file.
    uint64_t offset() const { return m_offset; }

private:
    bool next_of_any_kind(std::string_view& line);
    bool refill();

    const InputFile& m_file;
    std::string m_buffer;
    size_t m_begin = 0;         // of what was not given yet, in the buffer
    uint64_t m_buffer_end = 0;  // in the file
    uint64_t m_offset = 0;
};

}  // namespace tools
