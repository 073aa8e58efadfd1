// The byte channels under the group file. Every short transfer is an `Error`, so code above has no
// error paths for I/O. A stream belongs to one call; its owner closes it by destroying it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace vek {

class InputStream {
public:
    // A position to return to.
    class StreamState {
    public:
        virtual ~StreamState() = default;
    };

    virtual ~InputStream() = default;
    // Exactly `bytes` bytes or `Error`; asking for more than there is reads nothing.
    virtual void read(void* buffer, size_t bytes) = 0;
    virtual std::unique_ptr<StreamState> get_state() const = 0;
    // 0, or what the failed seek gave; the stream is not used again then.
    virtual int set_state(const StreamState& state) = 0;
    // Bytes of the source in all, as found when it was opened, and those not read yet.
    virtual size_t size() const = 0;
    virtual size_t remaining() const = 0;
    virtual std::FILE* handle() const = 0;

    // An array of `count` elements. Memory is taken only after the source is known to hold them, so
    // a small file cannot ask for much.
    template <typename T>
    std::unique_ptr<T[]> read_array(uint64_t count) {
        check_remaining(count, sizeof(T));
        std::unique_ptr<T[]> elements(new T[static_cast<size_t>(count)]);
        read(elements.get(), static_cast<size_t>(count) * sizeof(T));
        return elements;
    }

private:
    // `Error` unless so many bytes are left.
    void check_remaining(uint64_t count, uint64_t element_bytes) const;
};

class OutputStream {
public:
    virtual ~OutputStream() = default;
    // Exactly `bytes` bytes or `Error`.
    virtual void write(const void* buffer, size_t bytes) = 0;
    virtual void close() = 0;
    virtual bool closed() const = 0;
    virtual std::FILE* handle() const = 0;  // null once closed
};

std::unique_ptr<InputStream> open_input_stream(const std::string& path);
// Without `append` an existing file is truncated at once.
std::unique_ptr<OutputStream> open_output_stream(const std::string& path, bool append);

// A word in host byte order.
uint64_t read_u64(InputStream& stream);
void write_u64(OutputStream& stream, uint64_t value);

}  // namespace vek
