// Lines of a matrix operand: rows of the left one, columns of the right one. A value that borrows
// the operand's memory; any thread.
#pragma once

#include <algorithm>
#include <cstddef>

namespace kern {

// Element `index * step` behind `base`; for counts, which are never negative.
template <typename T>
T* at_step(T* base, size_t index, ptrdiff_t step) {
    return base + static_cast<ptrdiff_t>(index) * step;
}

// Both steps are in elements, and one of them is 1.
template <typename T>
struct Lines {
    const T* first;
    size_t count;
    ptrdiff_t line_step;
    ptrdiff_t k_step;

    // At most `most` lines from `line` on, each from `k` on.
    Lines block(size_t line, size_t most, size_t k = 0) const {
        return {at_step(at_step(first, line, line_step), k, k_step), std::min(most, count - line),
                line_step, k_step};
    }
    // All lines from `line` on.
    Lines from(size_t line) const { return block(line, count); }
};

}  // namespace kern
