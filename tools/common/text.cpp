#include "common/text.h"

#include <algorithm>
#include <cstdio>

namespace tools {
namespace {

bool is_continuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// Also those of the second block, which begin with the byte 0xC2.
bool is_control(const std::string& text, size_t position) {
    const auto byte = static_cast<unsigned char>(text[position]);
    return byte < 0x20 || byte == 0x7F ||
           (byte == 0xC2 && static_cast<unsigned char>(text[position + 1]) < 0xA0);
}

constexpr size_t MAX_FILE_NAME = 200;

}  // namespace

size_t utf8_length(const std::string& text, size_t position) {
    const auto byte = [&](size_t i) {
        return position + i < text.size() ? static_cast<unsigned char>(text[position + i]) : 0U;
    };
    const unsigned first = byte(0), second = byte(1);
    if (position >= text.size() || first < 0x80)
        return position < text.size() ? 1 : 0;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    for (size_t i = 1; i < length; ++i) {
        if (!is_continuation(static_cast<unsigned char>(byte(i))))
            return 0;
    }
    // Longer than needed, a surrogate, or behind the last code point.
    const bool is_wrong = first < 0xC2 || first > 0xF4 || (first == 0xE0 && second < 0xA0) ||
                          (first == 0xED && second >= 0xA0) || (first == 0xF0 && second < 0x90) ||
                          (first == 0xF4 && second >= 0x90);
    return is_wrong ? 0 : length;
}

std::string printable(const std::string& text) {
    std::string result;
    for (size_t i = 0; i < text.size();) {
        const size_t length = utf8_length(text, i);
        if (length != 0 && !is_control(text, i)) {
            result.append(text, i, length);
            i += length;
            continue;
        }
        char escape[8];
        std::snprintf(escape, sizeof(escape), "\\x%02x", static_cast<unsigned char>(text[i]));
        result += escape;
        ++i;
    }
    return result;
}

std::string safe_file_name(const std::string& name) {
    std::string result = name.substr(0, MAX_FILE_NAME);
    for (char& c : result) {
        const bool is_safe = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
                             (c >= 'a' && c <= 'z') || c == '.' || c == '_' || c == '-';
        if (!is_safe)
            c = '_';
    }
    if (result.empty() || result[0] == '.' || result[0] == '-')
        result.insert(result.begin(), '_');
    return result;
}

std::string formatted(const char* format, double number) {
    char text[64];
    std::snprintf(text, sizeof(text), format, number);
    return text;
}

std::string hex(uint64_t number) {
    char text[32];
    std::snprintf(text, sizeof(text), "0x%016llx", static_cast<unsigned long long>(number));
    return text;
}

std::string seconds_text(double seconds) {
    if (seconds < 1e-3)
        return formatted("%.1f us", seconds * 1e6);
    return seconds < 1 ? formatted("%.3f ms", seconds * 1e3) : formatted("%.3f s", seconds);
}

Table::Table(std::string alignment, std::vector<std::string> heads)
    : m_alignment(std::move(alignment)) {
    add(std::move(heads));
}

void Table::add(std::vector<std::string> cells) {
    m_rows.push_back(std::move(cells));
}

void Table::print(std::ostream& out) const {
    std::vector<size_t> widths(m_alignment.size());
    for (const auto& row : m_rows) {
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    }
    for (const auto& row : m_rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths[i] - row[i].size(), ' ');
            line += "  " + (m_alignment[i] == 'r' ? padding + row[i] : row[i] + padding);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

}  // namespace tools
