#include "common/line_reader.h"

#include <algorithm>

namespace tools {
namespace {

constexpr size_t PIECE = 1 << 20;

}  // namespace

bool LineReader::next(std::string_view& line) {
    while (next_of_any_kind(line)) {
        if (line.find_first_not_of(" \t\r") != std::string_view::npos)
            return true;
    }
    return false;
}

bool LineReader::next_of_any_kind(std::string_view& line) {
    size_t end = m_buffer.find('\n', m_begin);
    while (end == std::string::npos) {
        const size_t searched = m_buffer.size() - m_begin;
        if (!refill())
            break;
        end = m_buffer.find('\n', m_begin + searched);
    }
    m_offset = m_buffer_end - (m_buffer.size() - m_begin);
    const bool is_last = end == std::string::npos;
    if (is_last && m_begin == m_buffer.size())
        return false;
    const size_t length = (is_last ? m_buffer.size() : end) - m_begin;
    line = std::string_view(m_buffer).substr(m_begin, length);
    m_begin += length + (is_last ? 0 : 1);
    return true;
}

bool LineReader::refill() {
    const uint64_t left = m_file.size() - m_buffer_end;
    if (left == 0)
        return false;
    m_buffer.erase(0, m_begin);
    m_begin = 0;
    const auto count = static_cast<size_t>(std::min<uint64_t>(left, PIECE));
    const size_t kept = m_buffer.size();
    m_buffer.resize(kept + count);
    m_file.read_at(m_buffer_end, m_buffer.data() + kept, count);
    m_buffer_end += count;
    return true;
}

}  // namespace tools
