#include "kernels/workspace.h"

#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace kern {

WorkspaceBundle::WorkspaceBundle(void* base, const std::vector<size_t>& sizes, size_t alignment)
    : m_base(static_cast<uint8_t*>(base)), m_alignment(alignment) {
    m_sizes.reserve(sizes.size());
    for (size_t size : sizes)
        m_sizes.push_back(round_up(size, alignment));
}

size_t WorkspaceBundle::total_size() const {
    size_t total = m_alignment;
    for (size_t size : m_sizes)
        total = checked_add(total, size);
    return total;
}

void* WorkspaceBundle::get(size_t index) const {
    KERN_CHECK(index < m_sizes.size());
    uint8_t* part = align_up(m_base, m_alignment);
    for (size_t i = 0; i < index; ++i)
        part += m_sizes[i];
    return part;
}

}  // namespace kern
