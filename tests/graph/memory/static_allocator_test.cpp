#include "graph/memory/static_allocator.h"

#include <gtest/gtest.h>

#include <random>

namespace orb {
namespace {

struct Planned {
    size_t begin, end, size, addr;
};

TEST(StaticAllocator, GivesTheLowestAddressesThatLifetimesAllow) {
    const std::vector<std::vector<Planned>> cases = {
        {{0, 1, 100, 0}},                                // peaks at its rounded size
        {{0, 2, 64, 0}, {2, 4, 64, 0}},                  // disjoint lives share an address
        {{0, 2, 64, 0}, {1, 3, 64, 64}, {2, 4, 64, 0}},  // the freed one is taken again
        {{0, 1, 64, 0},
         {0, 3, 64, 192},
         {1, 3, 192, 0}},  // a hole is enlarged, what lies above moves up
        {{0, 9, 64, 0}, {0, 2, 256, 64}, {0, 9, 64, 320}, {3, 4, 128, 64}},  // best fit in a hole
        {{0, 5, 0, 0}, {0, 5, 64, 0}},                                       // no bytes, no room
    };
    for (const auto& intervals : cases) {
        StaticMemoryAllocator allocator(64);
        for (const Planned& interval : intervals)
            allocator.add(interval.begin, interval.end, interval.size);
        allocator.solve();
        for (size_t id = 0; id < intervals.size(); ++id)
            EXPECT_EQ(allocator.get_interval_addr(id), intervals[id].addr)
                << "interval " << id << " of case " << (&intervals - cases.data());
        if (intervals.size() == 1) {
            EXPECT_EQ(allocator.peak(), 128u);
            EXPECT_EQ(allocator.tot_alloc_lower_bound(), 128u);
        }
    }
}

TEST(StaticAllocator, OverwritingIntervalsLiveInsideTheirDestination) {
    StaticMemoryAllocator allocator(16);
    const size_t other = allocator.add(0, 9, 16);
    const size_t root = allocator.add(0, 2, 128);
    const size_t middle = allocator.add(1, 4, 64);
    const size_t last = allocator.add(3, 6, 32);
    const size_t after = allocator.add(5, 7, 128);
    allocator.add_overwrite_spec(last, middle, 16);
    allocator.add_overwrite_spec(middle, root, 32);
    allocator.solve();
    EXPECT_EQ(allocator.get_interval_addr(other), 0u);
    EXPECT_EQ(allocator.get_interval_addr(middle), allocator.get_interval_addr(root) + 32);
    EXPECT_EQ(allocator.get_interval_addr(last), allocator.get_interval_addr(root) + 48);
    // The chain holds its memory until its last member is dead.
    EXPECT_GE(allocator.get_interval_addr(after), allocator.get_interval_addr(root) + 128);
}

TEST(StaticAllocator, RandomPlansNeverOverlapAndStayNearTheLowerBound) {
    for (unsigned seed = 0; seed < 200; ++seed) {
        std::mt19937 random(seed);
        StaticMemoryAllocator allocator(32);
        std::vector<Planned> intervals;
        for (size_t i = 0; i < 40; ++i) {
            const size_t begin = random() % 30;
            intervals.push_back({begin, begin + 1 + random() % 8, 1 + random() % 1000, 0});
            allocator.add(begin, intervals.back().end, intervals.back().size);
        }
        allocator.solve();
        for (size_t id = 0; id < intervals.size(); ++id) {
            Planned& a = intervals[id];
            a.addr = allocator.get_interval_addr(id);
            EXPECT_EQ(a.addr % 32, 0u);
            EXPECT_LE(a.addr + a.size, allocator.peak());
            for (size_t other = 0; other < id; ++other) {
                const Planned& b = intervals[other];
                const bool live_together = a.begin < b.end && b.begin < a.end;
                const bool overlap = a.addr < b.addr + b.size && b.addr < a.addr + a.size;
                EXPECT_FALSE(live_together && overlap) << "seed " << seed;
            }
        }
        EXPECT_GE(allocator.peak(), allocator.tot_alloc_lower_bound());
        EXPECT_LE(allocator.peak(), 2 * allocator.tot_alloc_lower_bound()) << "seed " << seed;
    }
}

TEST(StaticAllocatorDeathTest, RefusesWhatCannotBePlanned) {
    EXPECT_DEATH(StaticMemoryAllocator(48), "");
    StaticMemoryAllocator allocator(16);
    const size_t large = allocator.add(0, 1, 64);
    const size_t small = allocator.add(0, 1, 32);
    EXPECT_DEATH(allocator.add(2, 2, 16), "");
    EXPECT_DEATH(allocator.add_overwrite_spec(large, large, 0), "");
    EXPECT_DEATH(allocator.add_overwrite_spec(large, small, 0), "");
    EXPECT_DEATH(allocator.add_overwrite_spec(small, large, 48), "");
}

}  // namespace
}  // namespace orb
