// Scratch memory of a kernel call, owned by the caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "kernels/check.h"

namespace kern {

struct Workspace {
    uint8_t* raw_ptr = nullptr;
    size_t size = 0;

    // The start as an array of T; memory that is not aligned for it stops the process.
    template <typename T>
    T* as() const {
        KERN_CHECK(reinterpret_cast<uintptr_t>(raw_ptr) % alignof(T) == 0);
        return static_cast<T*>(static_cast<void*>(raw_ptr));
    }
};

// The first address from `pointer` on that is a multiple of `unit`.
inline uint8_t* align_up(void* pointer, size_t unit) {
    const size_t misalignment = reinterpret_cast<uintptr_t>(pointer) % unit;
    return static_cast<uint8_t*>(pointer) + (misalignment == 0 ? 0 : unit - misalignment);
}

// Carves one workspace into aligned parts. The total holds one alignment more than the parts need,
// so that the first part can be aligned after the fact.
class WorkspaceBundle {
public:
    static constexpr size_t DEFAULT_ALIGNMENT = 512;
    static constexpr size_t MAX_PARTS = 5;  // kept inside: kernels make bundles and do not allocate

    // `alignment` is a power of two.
    WorkspaceBundle(void* base, std::initializer_list<size_t> sizes,
                    size_t alignment = DEFAULT_ALIGNMENT);

    size_t total_size() const;
    void* get(size_t index) const;

private:
    uint8_t* m_base;
    size_t m_sizes[MAX_PARTS] = {};  // each rounded up to the alignment
    size_t m_count = 0;
    size_t m_alignment;
};

}  // namespace kern
