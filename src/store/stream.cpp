#include "store/stream.h"

#include "store/error.h"

namespace vek {
namespace {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

constexpr char READ_FUNCTION[] = "virtual void {anonymous}::FileInputStream::read(void*, size_t)";

[[noreturn]] void throw_end_of_file() {
    throw Error(VEK_BROKEN_FILE, "Reaches EOF unexpectedly. The file is broken.", READ_FUNCTION);
}

class FileInputStream final : public InputStream {
public:
    explicit FileInputStream(const std::string& path)
        : m_path(path), m_file(std::fopen(path.c_str(), "rb")) {
        static constexpr char FUNCTION[] =
            "{anonymous}::FileInputStream::FileInputStream(const string&)";
        if (!m_file)
            throw Error(VEK_FILE_NOT_FOUND, "Cannot open " + path, FUNCTION);
        if (std::fseek(m_file.get(), 0, SEEK_END) != 0)
            throw Error(VEK_BROKEN_FILE, "Cannot seek " + path, FUNCTION);
        const long end = std::ftell(m_file.get());
        if (end == -1)
            throw Error(VEK_BROKEN_FILE, "Cannot tell " + path, FUNCTION);
        m_file_size = static_cast<size_t>(end);
        if (std::fseek(m_file.get(), 0, SEEK_SET) != 0)
            throw Error(VEK_BROKEN_FILE, "Cannot seek " + path, FUNCTION);
    }

    void read(void* buffer, size_t bytes) override {
        if (bytes > remaining())
            throw_end_of_file();
        if (std::fread(buffer, 1, bytes, m_file.get()) < bytes)
            throw Error(VEK_BROKEN_FILE, "Cannot read " + m_path, READ_FUNCTION);
        m_state.position += bytes;
    }
    std::unique_ptr<StreamState> get_state() const override {
        return std::make_unique<FileState>(m_state);
    }
    int set_state(const StreamState& state) override {
        m_state = static_cast<const FileState&>(state);
        return std::fseek(m_file.get(), static_cast<long>(m_state.position), SEEK_SET);
    }
    size_t size() const override { return m_file_size; }
    size_t remaining() const override {
        return m_state.position < m_file_size ? m_file_size - m_state.position : 0;
    }
    std::FILE* handle() const override { return m_file.get(); }

private:
    struct FileState final : StreamState {
        size_t position = 0;  // bytes from the start
    };

    FileState m_state;
    std::string m_path;
    File m_file;
    size_t m_file_size = 0;
};

class FileOutputStream final : public OutputStream {
public:
    FileOutputStream(const std::string& path, bool append)
        : m_path(path), m_file(std::fopen(path.c_str(), append ? "ab" : "wb")) {
        static constexpr char FUNCTION[] =
            "{anonymous}::FileOutputStream::FileOutputStream(const string&, bool)";
        if (!m_file) {
            throw Error(VEK_INTERNAL_ERROR,
                        std::string("FileOutputStream cannot ") +
                            (append ? "append to " : "create ") + path,
                        FUNCTION);
        }
    }

    void write(const void* buffer, size_t bytes) override {
        static constexpr char FUNCTION[] =
            "virtual void {anonymous}::FileOutputStream::write(const void*, size_t)";
        if (closed())
            throw Error(VEK_INTERNAL_ERROR, "write to closed FileOutputStream", FUNCTION);
        if (bytes > 0 && std::fwrite(buffer, 1, bytes, m_file.get()) < bytes)
            throw Error(VEK_INTERNAL_ERROR, "FileOutputStream cannot write to " + m_path, FUNCTION);
    }
    void close() override { m_file.reset(); }
    bool closed() const override { return !m_file; }
    std::FILE* handle() const override { return m_file.get(); }

private:
    std::string m_path;
    File m_file;
};

}  // namespace

void InputStream::check_remaining(uint64_t count, uint64_t element_bytes) const {
    if (count > remaining() / element_bytes)
        throw_end_of_file();
}

std::unique_ptr<InputStream> open_input_stream(const std::string& path) {
    return std::make_unique<FileInputStream>(path);
}

std::unique_ptr<OutputStream> open_output_stream(const std::string& path, bool append) {
    return std::make_unique<FileOutputStream>(path, append);
}

uint64_t read_u64(InputStream& stream) {
    uint64_t value = 0;
    stream.read(&value, sizeof(value));
    return value;
}

void write_u64(OutputStream& stream, uint64_t value) {
    stream.write(&value, sizeof(value));
}

}  // namespace vek
