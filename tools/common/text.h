// Texts for people: names of strangers made harmless, numbers, and tables.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace tools {

// Bytes of the well-formed UTF-8 character at this position; 0 where there is none.
size_t utf8_length(const std::string& text, size_t position);
// Control characters and bytes that are no UTF-8 are written as \xNN, so that a name cannot steer a
// terminal.
std::string printable(const std::string& text);
// Letters, digits and "._-" only, not empty and not hidden.
std::string safe_file_name(const std::string& name);

// By a printf format for one double, of at most 63 characters.
std::string formatted(const char* format, double number);
std::string hex(uint64_t number);  // 16 digits behind 0x
std::string seconds_text(double seconds);

// Columns as wide as their widest cell.
class Table {
public:
    // One letter a column: 'l' for left, 'r' for right.
    Table(std::string alignment, std::vector<std::string> heads);

    void add(std::vector<std::string> cells);
    bool is_empty() const { return m_rows.size() == 1; }
    // Each row is indented by two places.
    void print(std::ostream& out) const;

private:
    std::string m_alignment;
    std::vector<std::vector<std::string>> m_rows;
};

}  // namespace tools
