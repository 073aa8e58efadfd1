#include "common/json_reader.h"

#include <charconv>
#include <cstring>

#include "common/input_file.h"

namespace tools {
namespace {

constexpr size_t MAX_BYTES = 1 << 20;
constexpr int MAX_DEPTH = 64;

// By the grammar of RFC 8259.
class Parser {
public:
    explicit Parser(const std::string& path) : m_file(path) {
        if (m_file.size() > MAX_BYTES)
            m_file.fail(MAX_BYTES, "the JSON text is too long");
        m_text.resize(static_cast<size_t>(m_file.size()));
        m_file.read_at(0, m_text.data(), m_text.size());
    }

    JsonObject read() {
        JsonObject object = read_object(0);
        peek();
        if (m_position < m_text.size())
            fail("something follows the object");
        return object;
    }

private:
    [[noreturn]] void fail(const char* text) const { m_file.fail(m_position, text); }

    char peek() {
        while (m_position < m_text.size() && std::strchr(" \t\r\n", m_text[m_position]))
            ++m_position;
        return m_position < m_text.size() ? m_text[m_position] : '\0';
    }
    bool skip(char wanted) {
        if (peek() != wanted)
            return false;
        ++m_position;
        return true;
    }
    bool skip_word(const char* word) {
        const size_t length = std::strlen(word);
        if (m_text.compare(m_position, length, word) != 0)
            return false;
        m_position += length;
        return true;
    }

    // `read_item` reads one; items are separated by commas.
    template <typename ReadItem>
    void read_list(char begin, char end, ReadItem read_item) {
        if (!skip(begin))
            fail("this is no JSON object");
        if (skip(end))
            return;
        do
            read_item();
        while (skip(','));
        if (!skip(end))
            fail("a comma or the end of a list is missing");
    }

    JsonObject read_object(int depth) {
        JsonObject object;
        read_list('{', '}', [&] {
            if (peek() != '"')
                fail("a key in quotes is missing");
            const std::string key = read_string();
            if (!skip(':'))
                fail("a colon is missing");
            object[key] = read_value(depth + 1);
        });
        return object;
    }

    JsonValue read_value(int depth) {
        if (depth > MAX_DEPTH)
            fail("values are nested too deeply");
        const char first = peek();
        JsonValue value;
        value.offset = m_position;
        if (first == '{') {
            read_object(depth);
        } else if (first == '[') {
            read_list('[', ']', [&] { read_value(depth + 1); });
        } else if (first == '"') {
            value.kind = JsonValue::Kind::TEXT;
            value.text = read_string();
        } else if (skip_word("true")) {
            value.kind = JsonValue::Kind::BOOL;
            value.flag = true;
        } else if (skip_word("false")) {
            value.kind = JsonValue::Kind::BOOL;
        } else if (!skip_word("null")) {
            value.kind = JsonValue::Kind::NUMBER;
            value.number = read_number();
        }
        return value;
    }

    double read_number() {
        double number = 0;
        const char* const begin = m_text.data() + m_position;
        const auto [end, error] = std::from_chars(begin, m_text.data() + m_text.size(), number);
        if (error != std::errc() || (*begin != '-' && (*begin < '0' || *begin > '9')))
            fail("this is no value");
        m_position += static_cast<size_t>(end - begin);
        return number;
    }

    // Escapes are kept as they stand: no key or value that the programs look for has any.
    std::string read_string() {
        const size_t begin = ++m_position;
        while (m_position < m_text.size() && m_text[m_position] != '"')
            m_position += m_text[m_position] == '\\' ? 2 : 1;
        if (m_position >= m_text.size())
            fail("a string has no end");
        return m_text.substr(begin, m_position++ - begin);
    }

    InputFile m_file;
    std::string m_text;
    size_t m_position = 0;
};

}  // namespace

JsonObject read_json_object(const std::string& path) {
    return Parser(path).read();
}

}  // namespace tools
