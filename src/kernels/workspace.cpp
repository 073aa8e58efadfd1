#include "kernels/workspace.h"

#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace kern {

WorkspaceBundle::WorkspaceBundle(void* base, std::initializer_list<size_t> sizes, size_t alignment)
    : m_base(static_cast<uint8_t*>(base)), m_alignment(alignment) {
    KERN_CHECK(sizes.size() <= MAX_PARTS);
    for (size_t size : sizes)
        m_sizes[m_count++] = round_up(size, alignment);
}

size_t WorkspaceBundle::total_size() const {
    size_t total = m_alignment;
    for (size_t i = 0; i < m_count; ++i)
        total = checked_add(total, m_sizes[i]);
    return total;
}

void* WorkspaceBundle::get(size_t index) const {
    KERN_CHECK(index < m_count);
    uint8_t* part = align_up(m_base, m_alignment);
    for (size_t i = 0; i < index; ++i)
        part += m_sizes[i];
    return part;
}

}  // namespace kern
