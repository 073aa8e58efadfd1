#include "npy.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <optional>

namespace npy {
namespace {

struct TypeRow {
    ElementType type;
    const char* name;
    const char* descr;
    size_t bytes;
};
const TypeRow TYPES[] = {
    {ElementType::FLOAT16, "float16", "<f2", 2}, {ElementType::FLOAT32, "float32", "<f4", 4},
    {ElementType::FLOAT64, "float64", "<f8", 8}, {ElementType::INT8, "int8", "|i1", 1},
    {ElementType::UINT8, "uint8", "|u1", 1},     {ElementType::INT16, "int16", "<i2", 2},
    {ElementType::INT32, "int32", "<i4", 4},
};

const TypeRow& row_of(ElementType type) {
    return *std::find_if(std::begin(TYPES), std::end(TYPES),
                         [type](const TypeRow& row) { return row.type == type; });
}

constexpr char MAGIC[] = "\x93NUMPY";
constexpr size_t MAGIC_BYTES = 6;
constexpr size_t HEADER_ALIGNMENT = 64;

// The header is a Python dictionary of three known keys. `base` is where it begins in the file.
class HeaderParser {
public:
    HeaderParser(const std::string& path, const std::string& text, size_t base)
        : m_path(path), m_text(text), m_base(base) {}

    Array parse() {
        Array array;
        bool has_type = false, has_order = false, has_shape = false;
        expect('{');
        while (!skip('}')) {
            const std::string key = read_string();
            expect(':');
            if (key == "descr") {
                array.type = read_type();
                has_type = true;
            } else if (key == "fortran_order") {
                read_order();
                has_order = true;
            } else if (key == "shape") {
                array.shape = read_shape();
                has_shape = true;
            } else {
                fail("the header has an unknown key");
            }
            if (!skip(',') && peek() != '}')
                fail("the header is not a dictionary");
        }
        if (!has_type || !has_order || !has_shape)
            fail("the header lacks a key");
        return array;
    }

private:
    [[noreturn]] void fail(const char* text) const {
        throw Error(m_path + ": byte " + std::to_string(m_base + m_position) + ": " + text);
    }
    char peek() {
        while (m_position < m_text.size() && std::strchr(" \t\n", m_text[m_position]))
            ++m_position;
        return m_position < m_text.size() ? m_text[m_position] : '\0';
    }
    bool skip(char wanted) {
        if (peek() != wanted)
            return false;
        ++m_position;
        return true;
    }
    void expect(char wanted) {
        if (!skip(wanted))
            fail("the header is not a dictionary");
    }
    std::string read_string() {
        const char quote = peek();
        if (quote != '\'' && quote != '"')
            fail("the header lacks a string");
        const size_t end = m_text.find(quote, ++m_position);
        if (end == std::string::npos)
            fail("a string has no end");
        std::string value = m_text.substr(m_position, end - m_position);
        m_position = end + 1;
        return value;
    }
    ElementType read_type() {
        if (peek() == '[')
            fail("records are not read");
        const std::string descr = read_string();
        for (const TypeRow& row : TYPES) {
            const bool is_byte = row.bytes == 1 && descr.size() == 3 && descr[0] == '<';
            if (descr == row.descr || (is_byte && descr.compare(1, 2, row.descr + 1) == 0))
                return row.type;
        }
        fail("elements of this type are not read");
    }
    void read_order() {
        peek();
        if (m_text.compare(m_position, 4, "True") == 0)
            fail("the array is in column-major order");
        if (m_text.compare(m_position, 5, "False") != 0)
            fail("fortran_order is neither True nor False");
        m_position += 5;
    }
    std::vector<size_t> read_shape() {
        std::vector<size_t> shape;
        expect('(');
        while (!skip(')')) {
            shape.push_back(read_length());
            if (!skip(',') && peek() != ')')
                fail("the shape is not a tuple");
        }
        return shape;
    }
    size_t read_length() {
        if (peek() < '0' || peek() > '9')
            fail("the shape is not a tuple of lengths");
        size_t length = 0;
        for (; m_position < m_text.size(); ++m_position) {
            const char digit = m_text[m_position];
            if (digit < '0' || digit > '9')
                break;
            if (__builtin_mul_overflow(length, size_t{10}, &length) ||
                __builtin_add_overflow(length, static_cast<size_t>(digit - '0'), &length))
                fail("a length is too large");
        }
        return length;
    }

    const std::string& m_path;
    const std::string& m_text;
    size_t m_base;
    size_t m_position = 0;
};

// Nothing where the product, also without axes of length 0, is more than memory can hold.
std::optional<size_t> array_bytes(ElementType type, const std::vector<size_t>& shape) {
    size_t bound = bytes_of(type);
    bool is_empty = false;
    for (size_t length : shape) {
        is_empty |= length == 0;
        if (__builtin_mul_overflow(bound, std::max<size_t>(length, 1), &bound) ||
            bound > PTRDIFF_MAX)
            return std::nullopt;
    }
    return is_empty ? 0 : bound;
}

class Reader {
public:
    explicit Reader(const std::string& path) : m_path(path), m_file(path, std::ios::binary) {
        m_file.seekg(0, std::ios::end);
        const std::streamoff size = m_file.tellg();
        m_file.seekg(0);
        if (!m_file || size < 0)
            throw Error(path + ": cannot be read");
        m_size = static_cast<uint64_t>(size);
    }

    Array read() {
        char start[MAGIC_BYTES + 2];
        read_bytes(start, sizeof(start));
        if (std::memcmp(start, MAGIC, MAGIC_BYTES) != 0)
            fail(0, "this is not a .npy file");
        const auto version = static_cast<uint8_t>(start[MAGIC_BYTES]);
        if (version < 1 || version > 3)
            fail(MAGIC_BYTES, "the version is none of 1 to 3");
        uint8_t length[4] = {};
        read_bytes(length, version == 1 ? 2 : 4);
        const uint64_t header_bytes = length[0] | uint64_t{length[1]} << 8 |
                                      uint64_t{length[2]} << 16 | uint64_t{length[3]} << 24;
        const auto base = static_cast<size_t>(m_position);
        if (header_bytes > m_size - m_position)
            fail(m_position, "the file ends in the header");
        std::string header(static_cast<size_t>(header_bytes), '\0');
        read_bytes(header.data(), header.size());
        Array array = HeaderParser(m_path, header, base).parse();
        const auto bytes = array_bytes(array.type, array.shape);
        if (!bytes || *bytes != m_size - m_position)
            fail(m_position, "the elements are not as many bytes as the shape says");
        array.bytes.resize(*bytes);
        read_bytes(array.bytes.data(), *bytes);
        return array;
    }

private:
    [[noreturn]] void fail(uint64_t offset, const char* text) const {
        throw Error(m_path + ": byte " + std::to_string(offset) + ": " + text);
    }
    void read_bytes(void* buffer, size_t bytes) {
        if (bytes > m_size - m_position)
            fail(m_position, "the file ends here");
        if (bytes != 0 &&
            !m_file.read(static_cast<char*>(buffer), static_cast<std::streamsize>(bytes)))
            fail(m_position, "the file cannot be read here");
        m_position += bytes;
    }

    const std::string& m_path;
    std::ifstream m_file;
    uint64_t m_size = 0;
    uint64_t m_position = 0;
};

}  // namespace

const char* name_of(ElementType type) {
    return row_of(type).name;
}

size_t bytes_of(ElementType type) {
    return row_of(type).bytes;
}

Array read(const std::string& path) {
    return Reader(path).read();
}

void write(const std::string& path, ElementType type, const std::vector<size_t>& shape,
           const void* bytes) {
    const auto count = array_bytes(type, shape);
    if (!count)
        throw Error(path + ": the shape is too large");
    std::string header =
        std::string("{'descr': '") + row_of(type).descr + "', 'fortran_order': False, 'shape': (";
    for (size_t axis = 0; axis < shape.size(); ++axis)
        header += (axis == 0 ? "" : " ") + std::to_string(shape[axis]) + ",";
    if (shape.size() > 1)
        header.pop_back();
    header += "), }";
    // The elements begin at a multiple of the alignment, behind a line's end.
    while ((MAGIC_BYTES + 4 + header.size() + 1) % HEADER_ALIGNMENT != 0)
        header += ' ';
    header += '\n';
    const char start[] = {1, 0, static_cast<char>(header.size() & 0xFF),
                          static_cast<char>(header.size() >> 8)};
    std::ofstream file(path, std::ios::binary);
    file.write(MAGIC, MAGIC_BYTES).write(start, sizeof(start)) << header;
    file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(*count));
    if (!file.flush())
        throw Error(path + ": cannot be written");
}

}  // namespace npy
