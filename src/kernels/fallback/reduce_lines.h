// Reduces several lines along an axis side by side. The lines of a row-major matrix's rows have
// independent chains of additions that overlap in time; those of its columns are neighbours in
// memory. Either way each line is combined in its own order alone: left to right within a leaf of
// at most LEAF elements, by halving above, so its bits do not depend on its neighbours.
#pragma once

#include <algorithm>
#include <cstddef>

namespace kern::fallback {

constexpr size_t LEAF = 4096;
constexpr size_t MAX_LINES = 64;
constexpr size_t OVERLAPPED_ROWS = 8;

// Policy over the accumulator type T (reduce_policies.h); elements are stored as In. At most
// MAX_LINES lines.
template <typename Policy, typename T, typename In>
class RowLines {
public:
    RowLines(const In* first, size_t line_step, size_t count)
        : m_first(first), m_line_step(line_step), m_count(count) {}

    size_t count() const { return m_count; }

    void accumulate(size_t low, size_t high, T* results) const {
        size_t line = 0;
        for (; line + OVERLAPPED_ROWS <= m_count; line += OVERLAPPED_ROWS)
            accumulate_rows<OVERLAPPED_ROWS>(line, low, high, results);
        for (; line < m_count; ++line)
            accumulate_rows<1>(line, low, high, results);
    }

private:
    template <size_t ROWS>
    void accumulate_rows(size_t line, size_t low, size_t high, T* results) const {
        const In* first = m_first + line * m_line_step;
        T sums[ROWS];
        std::fill(sums, sums + ROWS, Policy::start());
        for (size_t b = low; b < high; ++b) {
#pragma GCC unroll 8
            for (size_t row = 0; row < ROWS; ++row)
                sums[row] = Policy::combine(
                    sums[row], Policy::leaf(static_cast<T>(first[row * m_line_step + b])));
        }
        std::copy(sums, sums + ROWS, results + line);
    }

    const In* m_first;
    size_t m_line_step;
    size_t m_count;
};

template <typename Policy, typename T, typename In>
class ColumnLines {
public:
    ColumnLines(const In* first, size_t element_step, size_t count)
        : m_first(first), m_element_step(element_step), m_count(count) {}

    size_t count() const { return m_count; }

    void accumulate(size_t low, size_t high, T* results) const {
        std::fill(results, results + m_count, Policy::start());
        for (size_t b = low; b < high; ++b) {
            const In* elements = m_first + b * m_element_step;
            for (size_t line = 0; line < m_count; ++line)
                results[line] =
                    Policy::combine(results[line], Policy::leaf(static_cast<T>(elements[line])));
        }
    }

private:
    const In* m_first;
    size_t m_element_step;
    size_t m_count;
};

// The unfinished results of the elements low to high of each line.
template <typename Policy, typename Lines, typename T>
void reduce_range(const Lines& lines, size_t low, size_t high, T* results) {
    if (high - low <= LEAF) {
        lines.accumulate(low, high, results);
        return;
    }
    const size_t middle = low + (high - low) / 2;
    T upper[MAX_LINES];
    reduce_range<Policy>(lines, low, middle, results);
    reduce_range<Policy>(lines, middle, high, upper);
    for (size_t line = 0; line < lines.count(); ++line)
        results[line] = Policy::combine(results[line], upper[line]);
}

}  // namespace kern::fallback
