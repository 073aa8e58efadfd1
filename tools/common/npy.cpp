#include "common/npy.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "common/failure.h"
#include "common/output_file.h"

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
    {ElementType::INT32, "int32", "<i4", 4},     {ElementType::INT64, "int64", "<i8", 8},
    {ElementType::UINT16, "uint16", "<u2", 2},   {ElementType::UINT32, "uint32", "<u4", 4},
    {ElementType::UINT64, "uint64", "<u8", 8},
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
    HeaderParser(const tools::InputFile& file, const std::string& text, uint64_t base)
        : m_file(file), m_text(text), m_base(base) {}

    Header parse() {
        Header header;
        bool has_type = false, has_order = false, has_shape = false;
        expect('{');
        while (!skip('}')) {
            const std::string key = read_string();
            expect(':');
            if (key == "descr") {
                header.type = read_type();
                has_type = true;
            } else if (key == "fortran_order") {
                read_order();
                has_order = true;
            } else if (key == "shape") {
                header.shape = read_shape();
                has_shape = true;
            } else {
                fail("the header has an unknown key");
            }
            if (!skip(',') && peek() != '}')
                fail("the header is not a dictionary");
        }
        if (!has_type || !has_order || !has_shape)
            fail("the header lacks a key");
        return header;
    }

private:
    [[noreturn]] void fail(const char* text) const { m_file.fail(m_base + m_position, text); }
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
    std::vector<uint64_t> read_shape() {
        std::vector<uint64_t> shape;
        expect('(');
        while (!skip(')')) {
            shape.push_back(read_length());
            if (!skip(',') && peek() != ')')
                fail("the shape is not a tuple");
        }
        return shape;
    }
    uint64_t read_length() {
        if (peek() < '0' || peek() > '9')
            fail("the shape is not a tuple of lengths");
        uint64_t length = 0;
        for (; m_position < m_text.size(); ++m_position) {
            const char digit = m_text[m_position];
            if (digit < '0' || digit > '9')
                break;
            if (__builtin_mul_overflow(length, uint64_t{10}, &length) ||
                __builtin_add_overflow(length, static_cast<uint64_t>(digit - '0'), &length))
                fail("a length is too large");
        }
        return length;
    }

    const tools::InputFile& m_file;
    const std::string& m_text;
    uint64_t m_base;
    size_t m_position = 0;
};

// Nothing where the product, also without axes of length 0, is more than a file can hold.
std::optional<uint64_t> array_bytes(ElementType type, const std::vector<uint64_t>& shape) {
    uint64_t bound = bytes_of(type);
    bool is_empty = false;
    for (uint64_t length : shape) {
        is_empty |= length == 0;
        if (__builtin_mul_overflow(bound, std::max<uint64_t>(length, 1), &bound) ||
            bound > INT64_MAX)
            return std::nullopt;
    }
    return is_empty ? 0 : bound;
}

}  // namespace

const char* name_of(ElementType type) {
    return row_of(type).name;
}

size_t bytes_of(ElementType type) {
    return row_of(type).bytes;
}

Header read_header(const tools::InputFile& file) {
    char start[MAGIC_BYTES + 2];
    file.read_at(0, start, sizeof(start));
    if (std::memcmp(start, MAGIC, MAGIC_BYTES) != 0)
        file.fail(0, "this is not a .npy file");
    const auto version = static_cast<uint8_t>(start[MAGIC_BYTES]);
    if (version < 1 || version > 3)
        file.fail(MAGIC_BYTES, "the version is none of 1 to 3");
    uint8_t length[4] = {};
    const size_t length_bytes = version == 1 ? 2 : 4;
    file.read_at(sizeof(start), length, length_bytes);
    const uint64_t text_bytes = length[0] | uint64_t{length[1]} << 8 | uint64_t{length[2]} << 16 |
                                uint64_t{length[3]} << 24;
    const uint64_t base = sizeof(start) + length_bytes;
    if (text_bytes > file.size() - base)
        file.fail(base, "the file ends in the header");
    std::string text(static_cast<size_t>(text_bytes), '\0');
    file.read_at(base, text.data(), text.size());
    Header header = HeaderParser(file, text, base).parse();
    header.offset = base + text_bytes;
    const auto bytes = array_bytes(header.type, header.shape);
    if (!bytes)
        file.fail(base, "the shape is larger than a file can be");
    if (*bytes != file.size() - header.offset)
        file.fail(header.offset,
                  "the elements have " + std::to_string(file.size() - header.offset) +
                      " bytes, not the " + std::to_string(*bytes) + " that the shape says");
    header.bytes = *bytes;
    return header;
}

Array read(const std::string& path) {
    const tools::InputFile file(path);
    const Header header = read_header(file);
    if (header.bytes > PTRDIFF_MAX)
        throw tools::BadFile(path + ": the array is larger than memory can be");
    Array array;
    array.type = header.type;
    for (uint64_t length : header.shape) {
        if (length > SIZE_MAX)
            throw tools::BadFile(path + ": an axis is longer than memory can be");
        array.shape.push_back(static_cast<size_t>(length));
    }
    array.bytes.resize(static_cast<size_t>(header.bytes));
    file.read_at(header.offset, array.bytes.data(), array.bytes.size());
    return array;
}

std::string header_text(ElementType type, const std::vector<uint64_t>& shape) {
    std::string text =
        std::string("{'descr': '") + row_of(type).descr + "', 'fortran_order': False, 'shape': (";
    for (size_t axis = 0; axis < shape.size(); ++axis)
        text += (axis == 0 ? "" : " ") + std::to_string(shape[axis]) + ",";
    if (shape.size() > 1)
        text.pop_back();
    text += "), }";
    // The elements begin at a multiple of the alignment, behind a line's end.
    while ((MAGIC_BYTES + 4 + text.size() + 1) % HEADER_ALIGNMENT != 0)
        text += ' ';
    text += '\n';
    const char start[] = {1, 0, static_cast<char>(text.size() & 0xFF),
                          static_cast<char>(text.size() >> 8)};
    return std::string(MAGIC, MAGIC_BYTES) + std::string(start, sizeof(start)) + text;
}

void write(const std::string& path, ElementType type, const std::vector<size_t>& shape,
           const void* bytes) {
    const std::vector<uint64_t> lengths(shape.begin(), shape.end());
    const auto count = array_bytes(type, lengths);
    if (!count || *count > PTRDIFF_MAX)
        throw tools::BadFile(path + ": the shape is too large");
    const std::string header = header_text(type, lengths);
    tools::OutputFile file(path);
    file.write(header.data(), header.size());
    file.write(bytes, static_cast<size_t>(*count));
    file.commit(header.size() + *count);
}

}  // namespace npy
