// Visits the elements of a strided tensor in row-major order.
#pragma once

#include <cstddef>

#include "kernels/types/layout.h"

namespace kern::naive {

// One axis where the elements stand one behind the other, otherwise the layout as it is.
inline TensorLayout flattened(const TensorLayout& layout) {
    return layout.is_dense_raw() ? TensorLayout({layout.element_count()}, layout.dtype) : layout;
}

// The offset, in elements, of the element that is being visited. The layout has elements.
class StridedOffset {
public:
    explicit StridedOffset(const TensorLayout& layout) : m_last(layout.ndim - 1) {
        for (size_t axis = 0; axis < layout.ndim; ++axis) {
            m_length[axis] = layout.shape[axis];
            m_stride[axis] = layout.stride[axis];
        }
    }

    ptrdiff_t get() const { return m_offset; }

    // Steps to the next element; behind the last one comes the first.
    void advance() {
        m_offset += m_stride[m_last];
        if (++m_index[m_last] == m_length[m_last])
            carry();
    }

private:
    // Out of line: kernels are instantiated by the hundred, and rows end rarely.
    [[gnu::noinline]] void carry() {
        for (size_t axis = m_last;; --axis) {
            m_offset -= m_stride[axis] * static_cast<ptrdiff_t>(m_length[axis]);
            m_index[axis] = 0;
            if (axis == 0)
                return;
            m_offset += m_stride[axis - 1];
            if (++m_index[axis - 1] < m_length[axis - 1])
                return;
        }
    }

    ptrdiff_t m_offset = 0;
    size_t m_last;
    size_t m_index[TensorShape::MAX_NDIM] = {};
    size_t m_length[TensorShape::MAX_NDIM];
    ptrdiff_t m_stride[TensorShape::MAX_NDIM];
};

// `T` is const for a tensor that is only read. Borrows the memory.
template <typename T>
class TensorIterator {
public:
    TensorIterator(T* base, const TensorLayout& layout) : m_base(base), m_position(layout) {}

    T& operator*() const { return m_base[m_position.get()]; }
    TensorIterator& operator++() {
        m_position.advance();
        return *this;
    }

private:
    T* m_base;
    StridedOffset m_position;
};

// The lines of a tensor along one of its axes, in row-major order of the other axes.
class AxisLines {
public:
    AxisLines(const TensorLayout& layout, size_t axis)
        : m_length(layout[axis]), m_step(layout.stride[axis]), m_start(starts(layout, axis)) {}

    size_t length() const { return m_length; }
    ptrdiff_t step() const { return m_step; }  // from element to element of a line
    ptrdiff_t start() const { return m_start.get(); }
    void advance() { m_start.advance(); }

private:
    static TensorLayout starts(TensorLayout layout, size_t axis) {
        layout[axis] = 1;
        return layout;
    }

    size_t m_length;
    ptrdiff_t m_step;
    StridedOffset m_start;
};

}  // namespace kern::naive
