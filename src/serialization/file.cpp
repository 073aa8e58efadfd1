#include "serialization/file.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "kernels/check.h"
#include "serialization/graph_file_error.h"

namespace orb {
namespace {

struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, Close>;

[[noreturn]] void refuse(uint64_t offset) {
    throw GraphFileError(GraphFileFault::IO, offset, std::nullopt);
}

class DiskInput final : public InputFile {
public:
    DiskInput(FileHandle file, uint64_t size) : m_file(std::move(file)), m_size(size) {}

    void rewind() override { seek(0); }
    void skip(uint64_t bytes) override {
        if (bytes > bytes_left())
            refuse(m_position);
        seek(m_position + bytes);
    }
    void read(void* buffer, size_t bytes) override {
        if (std::fread(buffer, 1, bytes, m_file.get()) != bytes)
            refuse(m_position);
        m_position += bytes;
    }
    uint64_t tell() const override { return m_position; }
    uint64_t bytes_left() const override { return m_size - m_position; }

private:
    void seek(uint64_t position) {
        if (position > m_size ||
            ::fseeko(m_file.get(), static_cast<off_t>(position), SEEK_SET) != 0)
            refuse(m_position);
        m_position = position;
    }

    FileHandle m_file;
    uint64_t m_size;
    uint64_t m_position = 0;
};

class MemoryInput final : public InputFile {
public:
    MemoryInput(const void* bytes, size_t size)
        : m_bytes(static_cast<const uint8_t*>(bytes)), m_size(size) {}

    void rewind() override { m_position = 0; }
    void skip(uint64_t bytes) override {
        if (bytes > bytes_left())
            refuse(m_position);
        m_position += static_cast<size_t>(bytes);
    }
    void read(void* buffer, size_t bytes) override {
        if (bytes == 0)
            return;
        const uint8_t* source = m_bytes + m_position;
        skip(bytes);
        std::memcpy(buffer, source, bytes);
    }
    uint64_t tell() const override { return m_position; }
    uint64_t bytes_left() const override { return m_size - m_position; }

private:
    const uint8_t* m_bytes;
    size_t m_size;
    size_t m_position = 0;
};

class DiskOutput final : public OutputFile {
public:
    explicit DiskOutput(FileHandle file) : m_file(std::move(file)) {}

    void write(const void* buffer, size_t bytes) override {
        if (std::fwrite(buffer, 1, bytes, m_file.get()) != bytes)
            refuse(m_position);
        m_position += bytes;
    }
    // Also where what was written so far reaches the system, or is refused by it.
    void seek(uint64_t position) override {
        if (::fseeko(m_file.get(), static_cast<off_t>(position), SEEK_SET) != 0)
            refuse(m_position);
        m_position = position;
    }
    uint64_t tell() const override { return m_position; }

private:
    FileHandle m_file;
    uint64_t m_position = 0;
};

class MemoryOutput final : public OutputFile {
public:
    explicit MemoryOutput(std::vector<uint8_t>& bytes) : m_bytes(bytes), m_position(bytes.size()) {}

    void write(const void* buffer, size_t bytes) override {
        if (bytes == 0)
            return;
        if (bytes > m_bytes.size() - m_position)
            m_bytes.resize(m_position + bytes);
        std::memcpy(m_bytes.data() + m_position, buffer, bytes);
        m_position += bytes;
    }
    void seek(uint64_t position) override {
        KERN_CHECK(position <= m_bytes.size());
        m_position = static_cast<size_t>(position);
    }
    uint64_t tell() const override { return m_position; }

private:
    std::vector<uint8_t>& m_bytes;
    size_t m_position;
};

}  // namespace

void InputFile::read_into_tensor(HostTensorStorage& storage, const kern::TensorLayout& layout) {
    const size_t bytes = layout.span().high_byte;
    storage.ensure_size(bytes);
    if (bytes != 0)
        read(storage.ptr(), bytes);
}

std::shared_ptr<const uint8_t> InputFile::read_shared(size_t bytes) {
    const std::shared_ptr<uint8_t> buffer(new uint8_t[bytes], std::default_delete<uint8_t[]>());
    read(buffer.get(), bytes);
    return buffer;
}

std::unique_ptr<InputFile> InputFile::open(const std::string& path) {
    FileHandle file(std::fopen(path.c_str(), "rb"));
    struct stat status = {};
    if (!file || ::fstat(::fileno(file.get()), &status) != 0 || !S_ISREG(status.st_mode))
        return nullptr;
    return std::make_unique<DiskInput>(std::move(file), static_cast<uint64_t>(status.st_size));
}

std::unique_ptr<InputFile> InputFile::from_memory(const void* bytes, size_t size) {
    return std::make_unique<MemoryInput>(bytes, size);
}

std::unique_ptr<OutputFile> OutputFile::create(const std::string& path) {
    FileHandle file(std::fopen(path.c_str(), "wb"));
    if (!file)
        return nullptr;
    return std::make_unique<DiskOutput>(std::move(file));
}

std::unique_ptr<OutputFile> OutputFile::to_memory(std::vector<uint8_t>& bytes) {
    return std::make_unique<MemoryOutput>(bytes);
}

}  // namespace orb
