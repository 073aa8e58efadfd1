// A regular file whose bytes are read from any place. Whatever is wrong is a BadFile with the name,
// and the byte where there is one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tools {

class InputFile {
public:
    explicit InputFile(std::string path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    const std::string& path() const { return m_path; }
    // When it was opened.
    uint64_t size() const { return m_size; }
    // All of these bytes. Any thread may read.
    void read_at(uint64_t offset, void* buffer, size_t bytes) const;
    [[noreturn]] void fail(uint64_t offset, const std::string& text) const;

private:
    std::string m_path;
    int m_file = -1;
    uint64_t m_size = 0;
};

}  // namespace tools
