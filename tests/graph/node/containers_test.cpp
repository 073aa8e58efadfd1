// ChunkPool, UserDataContainer and the spin locks.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "graph/node/chunk_pool.h"
#include "graph/node/spin_lock.h"
#include "graph/node/user_data.h"
#include "tests/threads.h"

namespace orb {
namespace {

TEST(ChunkPool, ReusesChunksAndGrowsUpToALimit) {
    const struct {
        size_t chunk;
        std::vector<size_t> blocks;  // sizes of the first ones
    } cases[] = {
        {16, {64, 128, 256, 512, 1024, 2048, 4096, 8192, 16384, 32768, 32768}},
        {1, {4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 2048}},
        {4096, {16384, 32768, 65536, 65536}},
        {1000, {4000, 8000, 16000, 32000, 32000}},
        {5000, {20000, 80000, 80000}},
    };
    for (const auto& c : cases) {
        ChunkPool pool(c.chunk);
        for (int round = 0; round < 2; ++round) {
            size_t reserved = 0;
            std::set<void*> chunks;
            for (size_t block : c.blocks) {
                reserved += block;
                for (size_t i = 0; i < block / c.chunk; ++i) {
                    void* chunk = pool.alloc();
                    std::memset(chunk, 1, c.chunk);
                    EXPECT_TRUE(chunks.insert(chunk).second);
                }
                ASSERT_EQ(pool.reserved_bytes(), reserved) << c.chunk;
            }
            for (void* chunk : chunks)
                pool.free(chunk);
            for (size_t i = 0; i < chunks.size(); ++i)
                EXPECT_EQ(chunks.count(pool.alloc()), 1u);
            EXPECT_EQ(pool.reserved_bytes(), reserved);
            pool.clear();
            EXPECT_EQ(pool.reserved_bytes(), 0u);
        }
    }
    EXPECT_DEATH(ChunkPool(0), "");
}

struct Tagged {
    static const char TAG;
    int number;
    std::vector<int>* released;
    const UserDataContainer* container;
    // Records itself and the one attached before it, which must still be there.
    ~Tagged() {
        const Tagged* older = container->get<Tagged>();
        released->insert(released->end(), {number, older ? older->number : 0});
    }
};
const char Tagged::TAG = 0;

struct Other {
    static const char TAG;
};
const char Other::TAG = 0;

TEST(UserDataContainer, KeepsListsByTagAndReleasesNewestFirst) {
    std::vector<int> released;
    UserDataContainer container;
    EXPECT_EQ(container.get<Tagged>(), nullptr);
    const auto make = [&](int number) {
        return std::shared_ptr<Tagged>(new Tagged{number, &released, &container});
    };
    EXPECT_EQ(container.get_or_make<Tagged>([&] { return make(1); }).number, 1);
    EXPECT_EQ(container.get_or_make<Tagged>([&] { return make(9); }).number, 1);
    const auto second = make(2);
    container.add(&Tagged::TAG, second);
    container.add(&Other::TAG, make(3));
    container.add(&Tagged::TAG, make(5));
    EXPECT_EQ(container.get<Tagged>()->number, 5);
    EXPECT_DEATH(container.add(&Other::TAG, second), "");
    EXPECT_DEATH(container.add(&Other::TAG, nullptr), "");
    container.clear();
    EXPECT_EQ(released, (std::vector<int>{5, 2, 3, 2, 1, 0}));
    EXPECT_EQ(second.use_count(), 1);
    EXPECT_EQ(container.get<Tagged>(), nullptr);
    container.add(&Tagged::TAG, make(4));
    EXPECT_EQ(container.get<Tagged>()->number, 4);
}

template <typename Lock>
void count_under_lock() {
    Lock lock;
    size_t count = 0;
    run_together(4, [&](size_t) {
        for (int i = 0; i < 2000; ++i) {
            const std::lock_guard<Lock> guard(lock);
            ++count;
        }
    });
    EXPECT_EQ(count, 8000u);
}

TEST(SpinLocks, ExcludeOtherThreads) {
    count_under_lock<SpinLock>();
    count_under_lock<RecursiveSpinLock>();
}

TEST(SpinLocks, RecursionEndsWithTheLastUnlock) {
    RecursiveSpinLock lock;
    lock.lock();
    lock.lock();
    lock.unlock();
    bool taken = false;
    std::thread other([&] {
        const std::lock_guard<RecursiveSpinLock> guard(lock);
        taken = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(taken);  // `taken` is written under the lock, which this thread still holds
    lock.unlock();
    other.join();
    EXPECT_TRUE(taken);
    EXPECT_DEATH(lock.unlock(), "");
    lock.lock();
    EXPECT_DEATH(std::thread([&] { lock.unlock(); }).join(), "");
    lock.unlock();
}

}  // namespace
}  // namespace orb
