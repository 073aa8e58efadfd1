// A file that takes the place of an old one only when it is complete and on the disk. It is written
// under a name beside its place. A failure, and an end by SIGINT, SIGTERM, SIGHUP or SIGPIPE,
// remove what was written and leave the old file. Only regular files are replaced.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace tools {

class OutputFile {
public:
    // Opens the file beside `path`; BadFile where that cannot be, or where `path` is something else
    // than a regular file.
    explicit OutputFile(const std::string& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& path() const { return m_path; }
    // Appends.
    void write(const void* bytes, size_t count);
    void write(const std::string& text) { write(text.data(), text.size()); }
    uint64_t nr_written() const { return m_nr_written; }
    // Has the file written by its name. What the callback leaves as NAME.part is removed, too: the
    // group's dump writes there first.
    void write_by_name(const std::function<void(const std::string&)>& write);
    // To the disk, where the file has to have this length: a disk may be full without a failing
    // write.
    void flush(uint64_t expected_bytes);
    // To be called once, last: flushes, and takes the place of the old file.
    void commit(uint64_t expected_bytes);
    void commit() { commit(m_nr_written); }

private:
    [[noreturn]] void fail(const char* what) const;
    void flush_folder() const;

    std::string m_path;    // as the caller calls it
    std::string m_target;  // where it is, behind links
    std::string m_name, m_part;
    int m_file = -1;
    uint64_t m_nr_written = 0;
    bool m_was_there = false;
    unsigned m_mode = 0;
    size_t m_slots[2];
};

}  // namespace tools
