// The memory of an unbounded queue of tasks: a chain of blocks of slots, addressed by the position
// of a task. Producers on any thread each fill the slot of a position of their own, without a lock
// as long as it lies in the newest block; one consumer empties the slots in order. The list owns
// the blocks: emptied ones are used again, none is freed before the list.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "graph/node/spin_lock.h"
#include "kernels/task.h"

namespace orb {

class TaskBlockList final {
public:
    struct Slot {
        kern::Task task;
        // Set with release order after the task is there, cleared by the consumer.
        std::atomic<uint32_t> ready{0};
    };

    TaskBlockList();
    ~TaskBlockList();
    TaskBlockList(const TaskBlockList&) = delete;
    TaskBlockList& operator=(const TaskBlockList&) = delete;

    // The slot of a position that nobody has filled yet. Producers.
    Slot& slot_to_fill(uint64_t position);
    // The slots of the positions 0, 1, 2 and so on, by one call each. The consumer only, once the
    // position was given to a producer and the slots before are empty.
    Slot& next_slot();

private:
    static constexpr size_t NR_SLOTS = 256;
    struct Block {
        // Atomic, because a producer may look at a block just while it is used again. Then the
        // position it looks for is in a later block, or in this one under its new number.
        std::atomic<uint64_t> first{0};
        Block* previous = nullptr;
        Block* next = nullptr;
        Slot slots[NR_SLOTS];

        bool holds(uint64_t position) const {
            const uint64_t begin = first.load(std::memory_order_acquire);
            return position >= begin && position - begin < NR_SLOTS;
        }
    };

    Slot& slot_in_chain(uint64_t position);
    void append_block();

    // The lock guards the links, the free blocks and changes of the tail.
    SpinLock m_lock;
    std::atomic<Block*> m_tail{nullptr};
    uint64_t m_next_first = 0;
    Block* m_free = nullptr;  // linked by `next`

    // The consumer's place, on a cache line apart from what producers read.
    alignas(64) Block* m_consumed;
    size_t m_consumed_slots = 0;
};

}  // namespace orb
