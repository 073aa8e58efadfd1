#include "graph/node/task_block_list.h"

#include <mutex>
#include <new>

#include "kernels/check.h"

namespace orb {

TaskBlockList::TaskBlockList() {
    append_block();
    m_consumed = m_tail.load(std::memory_order_relaxed);
}

TaskBlockList::~TaskBlockList() {
    for (Block* list : {m_consumed, m_free}) {
        while (list) {
            Block* next = list->next;
            delete list;
            list = next;
        }
    }
}

TaskBlockList::Slot& TaskBlockList::slot_to_fill(uint64_t position) {
    // Acquire: the block's number and empty slots were written before it became the tail.
    Block* tail = m_tail.load(std::memory_order_acquire);
    if (tail->holds(position))
        return tail->slots[position % NR_SLOTS];
    return slot_in_chain(position);
}

TaskBlockList::Slot& TaskBlockList::next_slot() {
    if (m_consumed_slots == NR_SLOTS) {
        const std::lock_guard<SpinLock> lock(m_lock);
        // The position has a producer, but he may not have come to extending the chain.
        if (!m_consumed->next)
            append_block();
        Block* emptied = m_consumed;
        m_consumed = emptied->next;
        m_consumed->previous = nullptr;
        m_consumed_slots = 0;
        emptied->next = m_free;
        m_free = emptied;
    }
    return m_consumed->slots[m_consumed_slots++];
}

TaskBlockList::Slot& TaskBlockList::slot_in_chain(uint64_t position) {
    const std::lock_guard<SpinLock> lock(m_lock);
    while (position >= m_next_first)
        append_block();
    Block* block = m_tail.load(std::memory_order_relaxed);
    // The wanted block is in the chain still: the consumer cannot pass a slot that is not filled.
    while (!block->holds(position))
        block = block->previous;
    return block->slots[position % NR_SLOTS];
}

// Under the lock, but for the first block.
void TaskBlockList::append_block() {
    Block* block = m_free;
    if (block)
        m_free = block->next;
    else
        block = new (std::nothrow) Block;
    KERN_CHECK(block);  // a position that was given could never be filled
    Block* tail = m_tail.load(std::memory_order_relaxed);
    block->previous = tail;
    block->next = nullptr;
    block->first.store(m_next_first, std::memory_order_release);
    m_next_first += NR_SLOTS;
    if (tail)
        tail->next = block;
    m_tail.store(block, std::memory_order_release);
}

}  // namespace orb
