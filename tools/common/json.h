// Writes JSON as it is told, one value after the other, compactly.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace tools {

class JsonWriter {
public:
    explicit JsonWriter(std::ostream& out) : m_out(out) {}

    // Each key is followed by one value, in an object only.
    JsonWriter& key(const char* name);
    // Bytes that are no UTF-8 become the replacement character.
    void value(const std::string& text);
    void value(const char* text) { value(std::string(text)); }
    void value(uint64_t number);
    void value(int32_t number);
    void value(double number, int nr_digits = 9);
    void value(bool flag);
    void null();

    void begin_object() { begin('{'); }
    void end_object() { end('}'); }
    void begin_array() { begin('['); }
    void end_array() { end(']'); }
    // Ends the text's line.
    void finish() { m_out << '\n'; }

private:
    void begin(char bracket);
    void end(char bracket);
    void separate();
    void write_string(const std::string& text);

    std::ostream& m_out;
    bool m_needs_comma = false;
};

}  // namespace tools
