// Watches the memory that the test program asks for: the operators new and mmap, which everything
// large in a group comes from, can be made to fail; and what the graph runtime takes by its own
// allocator, which must never be large, is recorded.
#pragma once

#include <cstddef>

namespace allocation_watch {

// From now on sees allocations of at least `bytes`; `failing` of them fail after `failing_after`
// that do not. No more than one at a time.
class Watch {
public:
    static constexpr size_t NEVER = ~size_t{0};

    explicit Watch(size_t bytes, size_t failing_after = NEVER, size_t failing = NEVER);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // Allocations seen, failed ones included.
    size_t seen() const;
    // Bytes of the largest of them.
    size_t largest() const;
};

// Largest allocation of the runtime's own since the start of the program, and its limit.
size_t largest_of_runtime();
constexpr size_t MOST_OF_RUNTIME = 4096;

// Bytes that the library has mapped and not unmapped.
size_t mapped();

}  // namespace allocation_watch
