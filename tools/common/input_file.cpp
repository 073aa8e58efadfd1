#include "common/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/failure.h"

namespace tools {

InputFile::InputFile(std::string path) : m_path(std::move(path)) {
    // A pipe without a writer would keep a blocking call waiting.
    m_file = ::open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (m_file < 0)
        throw BadFile(m_path + ": cannot be read: " + std::strerror(errno));
    struct stat status;
    if (::fstat(m_file, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(m_file);
        throw BadFile(m_path + ": cannot be read: it is not a regular file");
    }
    m_size = static_cast<uint64_t>(status.st_size);
}

InputFile::~InputFile() {
    ::close(m_file);
}

void InputFile::read_at(uint64_t offset, void* buffer, size_t bytes) const {
    if (offset > m_size || bytes > m_size - offset)
        fail(std::min(offset, m_size), m_size == 0 ? "the file is empty" : "the file ends here");
    auto* to = static_cast<char*>(buffer);
    while (bytes > 0) {
        const ssize_t nr_read = ::pread(m_file, to, bytes, static_cast<off_t>(offset));
        if (nr_read < 0 && errno == EINTR)
            continue;
        if (nr_read < 0)
            fail(offset, std::string("the file cannot be read here: ") + std::strerror(errno));
        if (nr_read == 0)
            fail(offset, "the file ends here");
        to += nr_read;
        offset += static_cast<uint64_t>(nr_read);
        bytes -= static_cast<size_t>(nr_read);
    }
}

void InputFile::fail(uint64_t offset, const std::string& text) const {
    throw BadFile(m_path + ": byte " + std::to_string(offset) + ": " + text);
}

}  // namespace tools
