// Marks what bench/arm/vkcount.c counts. One region at a time, on one thread.
#pragma once

#include <sys/prctl.h>

namespace count {

// Counts the instructions of its lifetime under a number; without the counter it does nothing.
class Region {
public:
    explicit Region(unsigned id) : m_id(id) { prctl(MAGIC, 1, m_id, 0, 0); }
    ~Region() { prctl(MAGIC, 2, m_id, 0, 0); }
    Region(const Region&) = delete;
    Region& operator=(const Region&) = delete;

private:
    static constexpr int MAGIC = 0x564B4649;  // no option of the kernel's: the call fails
    unsigned m_id;
};

}  // namespace count
