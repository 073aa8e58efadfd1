#include "common/json.h"

#include <cmath>
#include <cstdio>

#include "common/text.h"

namespace tools {

JsonWriter& JsonWriter::key(const char* name) {
    separate();
    write_string(name);
    m_out << ':';
    m_needs_comma = false;
    return *this;
}

void JsonWriter::value(const std::string& text) {
    separate();
    write_string(text);
}

void JsonWriter::value(uint64_t number) {
    separate();
    m_out << number;
}

void JsonWriter::value(int32_t number) {
    separate();
    m_out << number;
}

void JsonWriter::value(double number, int nr_digits) {
    separate();
    if (!std::isfinite(number)) {
        m_out << "null";
        return;
    }
    char text[32];
    std::snprintf(text, sizeof(text), "%.*g", nr_digits, number);
    m_out << text;
}

void JsonWriter::value(bool flag) {
    separate();
    m_out << (flag ? "true" : "false");
}

void JsonWriter::null() {
    separate();
    m_out << "null";
}

void JsonWriter::begin(char bracket) {
    separate();
    m_out << bracket;
    m_needs_comma = false;
}

void JsonWriter::end(char bracket) {
    m_out << bracket;
    m_needs_comma = true;
}

void JsonWriter::separate() {
    if (m_needs_comma)
        m_out << ',';
    m_needs_comma = true;
}

void JsonWriter::write_string(const std::string& text) {
    m_out << '"';
    for (size_t i = 0; i < text.size();) {
        const size_t length = utf8_length(text, i);
        const auto byte = static_cast<unsigned char>(text[i]);
        if (length == 0) {
            m_out << "\\ufffd";
        } else if (byte == '"' || byte == '\\') {
            m_out << '\\' << text[i];
        } else if (byte < 0x20 || byte == 0x7F) {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\u%04x", byte);
            m_out << escape;
        } else {
            m_out.write(text.data() + i, static_cast<std::streamsize>(length));
        }
        i += length == 0 ? 1 : length;
    }
    m_out << '"';
}

}  // namespace tools
