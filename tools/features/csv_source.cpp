// Features as text: one row a line, numbers separated by commas, semicolons or blanks. A first line
// without any number holds the columns' names.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <optional>

#include "common/line_reader.h"
#include "features/feature_sources.h"

namespace features {
namespace {

// Takes one number from the front of the line, and what separates it from the next.
class Fields {
public:
    explicit Fields(std::string_view line) : m_line(line) { skip_blanks(); }

    bool is_at_end() const { return m_position == m_line.size(); }
    size_t position() const { return m_position; }
    // Also past what is no number, which gives nothing.
    std::optional<double> next() {
        const size_t begin = m_position + (m_line.compare(m_position, 1, "+") == 0 ? 1 : 0);
        m_position = std::min(m_line.find_first_of(",; \t\r", m_position), m_line.size());
        double number = 0;
        const char* const wanted_end = m_line.data() + m_position;
        const auto [end, error] = std::from_chars(m_line.data() + begin, wanted_end, number);
        skip_separator();
        return error == std::errc() && end == wanted_end ? std::optional(number) : std::nullopt;
    }
    bool ends_in_separator() const { return m_ends_in_separator; }

private:
    void skip_blanks() {
        m_position = std::min(m_line.find_first_not_of(" \t\r", m_position), m_line.size());
    }
    void skip_separator() {
        skip_blanks();
        if (is_at_end() || (m_line[m_position] != ',' && m_line[m_position] != ';'))
            return;
        ++m_position;
        skip_blanks();
        m_ends_in_separator = is_at_end();
    }

    std::string_view m_line;
    size_t m_position = 0;
    bool m_ends_in_separator = false;
};

bool holds_names(std::string_view line) {
    for (Fields fields(line); !fields.is_at_end();) {
        if (fields.next())
            return false;
    }
    return true;
}

class CsvFile final : public FeatureFile {
public:
    explicit CsvFile(const std::string& path) : FeatureFile(path, ".csv"), m_file(path) {
        rewind();
        std::string_view line;
        while (m_lines->next(line)) {
            if (m_nr_rows++ == 0)
                m_dim = count_elements(line);
        }
        rewind();
    }

    void read(uint64_t first, size_t count, void* rows) override {
        if (first < m_next)
            rewind();
        std::string_view line;
        for (; m_next < first; ++m_next)
            next_line(line);
        for (size_t i = 0; i < count; ++i, ++m_next) {
            next_line(line);
            read_row(line, static_cast<float*>(rows) + i * m_dim);
        }
    }

private:
    // To the first row, behind the columns' names.
    void rewind() {
        m_lines.emplace(m_file);
        m_next = 0;
        std::string_view line;
        if (!m_lines->next(line) || !holds_names(line))
            m_lines.emplace(m_file);
    }
    void next_line(std::string_view& line) {
        if (!m_lines->next(line))
            m_file.fail(m_lines->offset(), "the file ends here");
    }
    static size_t count_elements(std::string_view line) {
        size_t count = 0;
        for (Fields fields(line); !fields.is_at_end(); ++count)
            fields.next();
        return count;
    }
    void read_row(std::string_view line, float* row) const {
        Fields fields(line);
        for (size_t i = 0; i < m_dim; ++i) {
            if (fields.is_at_end())
                fail(line.size(),
                     "has " + std::to_string(i) + " elements, not " + std::to_string(m_dim));
            const size_t position = fields.position();
            const auto number = fields.next();
            const auto element = static_cast<float>(number.value_or(0));
            if (!number || (std::isinf(element) && !std::isinf(*number)))
                fail(position, "element " + std::to_string(i) +
                                   (number ? " is beyond 32-bit floats" : " is no number"));
            std::memcpy(row + i, &element, sizeof(element));
        }
        if (!fields.is_at_end() || fields.ends_in_separator())
            fail(fields.position(), "has more than " + std::to_string(m_dim) + " elements");
    }
    [[noreturn]] void fail(size_t position, const std::string& text) const {
        m_file.fail(m_lines->offset() + position, "row " + std::to_string(m_next) + ": " + text);
    }

    tools::InputFile m_file;
    std::optional<tools::LineReader> m_lines;
    uint64_t m_next = 0;  // the row that the next line holds
};

}  // namespace

std::unique_ptr<FeatureFile> open_csv(const std::string& path) {
    return std::make_unique<CsvFile>(path);
}

}  // namespace features
