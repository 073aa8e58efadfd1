// A vector of trivially copyable values that keeps the first few inside itself.
#pragma once

#include <cstddef>
#include <type_traits>
#include <vector>

namespace orb {

template <typename T, size_t INLINE_CAPACITY>
class SmallVector {
    static_assert(std::is_trivially_copyable_v<T>, "values are copied as plain memory");

public:
    SmallVector() = default;

    void push_back(T value) {
        if (m_size == INLINE_CAPACITY)
            m_heap.assign(m_inline, m_inline + m_size);
        if (m_size >= INLINE_CAPACITY)
            m_heap.push_back(value);
        else
            m_inline[m_size] = value;
        ++m_size;
    }

    size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    T* begin() { return m_size > INLINE_CAPACITY ? m_heap.data() : m_inline; }
    T* end() { return begin() + m_size; }
    const T* begin() const { return m_size > INLINE_CAPACITY ? m_heap.data() : m_inline; }
    const T* end() const { return begin() + m_size; }
    T& operator[](size_t index) { return begin()[index]; }
    const T& operator[](size_t index) const { return begin()[index]; }
    T& back() { return begin()[m_size - 1]; }

private:
    size_t m_size = 0;
    T m_inline[INLINE_CAPACITY] = {};
    std::vector<T> m_heap;  // holds all values once they are more than the inline capacity
};

}  // namespace orb
