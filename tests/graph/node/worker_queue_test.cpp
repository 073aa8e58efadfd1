// Numbered nodes: the order of tasks, waiting for them, and what runs where.
#include "graph/node/cpu_worker_queue.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <filesystem>
#include <memory>
#include <random>
#include <vector>

#include "graph/node/affinity.h"
#include "graph/node/comp_node_env.h"
#include "graph/node/spin_budget.h"
#include "tests/graph/node/workers.h"

namespace orb {
namespace {

using namespace orb_test;

std::ptrdiff_t nr_threads() {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return std::distance(begin(threads), end(threads));
}

TEST(WorkerQueue, ProducersKeepTheirOrderAndSyncWaitsForTheirOwn) {
    const Watchdog watchdog;
    constexpr size_t NR_PRODUCERS = 4;
    constexpr size_t NR_TASKS = 40000 / SLOWER;
    std::vector<size_t> nr_run(NR_PRODUCERS, 0);  // plain: one worker, and syncs order the reads
    std::vector<std::thread> producers;
    for (size_t p = 0; p < NR_PRODUCERS; ++p) {
        producers.emplace_back([&nr_run, p] {
            const CompNode node = worker_node(1, static_cast<int>(p));
            std::mt19937 random(static_cast<uint32_t>(p));
            const auto alive = std::make_shared<int>();
            for (size_t i = 0; i < NR_TASKS; ++i) {
                // Every other task has its data on the heap.
                if (i % 2 == 0)
                    node.add_callback([run = &nr_run[p], i] { EXPECT_EQ((*run)++, i); });
                else
                    node.add_callback([&run = nr_run[p], i, alive] { EXPECT_EQ(run++, i); });
                if (random() % 1000 == 0) {
                    node.sync();
                    EXPECT_EQ(nr_run[p], i + 1);
                    EXPECT_EQ(alive.use_count(), 1);  // the tasks are destroyed too
                }
            }
            node.sync();
        });
    }
    for (std::thread& producer : producers)
        producer.join();
    EXPECT_EQ(nr_run, std::vector<size_t>(NR_PRODUCERS, NR_TASKS));
}

TEST(WorkerQueue, NodesOfOneDeviceShareOneLateThread) {
    spin_budget();
    const std::ptrdiff_t before = nr_threads();
    const CompNode first = worker_node(2), second = worker_node(2, 1);
    first.sync();
    EXPECT_EQ(nr_threads(), before);
    std::thread::id ids[2];
    first.add_callback([&] { ids[0] = std::this_thread::get_id(); });
    second.add_callback([&] { ids[1] = std::this_thread::get_id(); });
    second.sync();
    EXPECT_EQ(nr_threads(), before + 1);
    EXPECT_EQ(ids[0], ids[1]);
    EXPECT_NE(ids[0], std::this_thread::get_id());
}

// Adds a task at about the moment at which the worker, or the waiting thread, falls asleep.
void add_around_sleep(CompNode node) {
    std::mt19937 random(1);
    for (int i = 0; i < 60; ++i) {
        const size_t rounds = spin_budget() * (950 + random() % 120) / 1000;
        const bool waiter_sleeps = i % 3 == 0;
        int value = 0;
        node.add_callback([&value, rounds, waiter_sleeps] {
            if (waiter_sleeps)
                spin_for(rounds, [] { return false; });
            ++value;
        });
        node.sync();
        EXPECT_EQ(value, 1);
        if (!waiter_sleeps)
            spin_for(rounds, [] { return false; });
    }
}

TEST(WorkerQueue, NoTaskIsMissedAroundTheMomentOfSleep) {
    const Watchdog watchdog;
    add_around_sleep(worker_node(3));
    cpu_set_t before;
    ASSERT_EQ(sched_getaffinity(0, sizeof(before), &before), 0);
    int core = 0;
    while (!CPU_ISSET(static_cast<size_t>(core), &before))
        ++core;
    enable_affinity = true;
    set_affinity({core});
    const CompNode::Locator place{CompNode::DeviceType::CPU, core, 9};
    const CompNode node = CompNode::load(place, place);
    bool same_core = false;
    node.add_callback([&] { same_core = sched_getcpu() == core; });
    enable_affinity = false;
    add_around_sleep(node);
    EXPECT_TRUE(same_core);
    sched_setaffinity(0, sizeof(before), &before);
}

TEST(WorkerQueue, MemoryIsUsedInTheOrderOfTasks) {
    const CompNode node = worker_node(4);
    int value = 1, result = 0;
    void* memory = node.alloc_device(sizeof(int));
    Gate gate(node);
    node.copy_to_device(memory, &value, sizeof(int));
    node.copy_to_host(&result, memory, sizeof(int));
    node.free_device(memory);
    value = 7;  // nothing has been copied yet
    EXPECT_EQ(result, 0);
    gate.open();
    node.sync();
    EXPECT_EQ(result, 7);
}

TEST(WorkerQueue, AStepRunsItsOwnNodesKernelsInPlace) {
    const CompNode node = worker_node(5), neighbour = worker_node(5, 1);
    std::vector<int> order;
    int* memory = static_cast<int*>(node.alloc_device(sizeof(int)));
    const uint32_t before = node.env().dispatcher().get_nr_dispatched();
    node.add_callback([&] {
        {
            const kern::DispatcherStep step(node.env().dispatcher());
            neighbour.env().kernel_handle().dispatch([&] { order.push_back(3); });
            node.env().kernel_handle().dispatch([&] { order.push_back(1); });
            const int value = 2;
            node.copy_to_device(memory, &value, sizeof(value));
            node.free_device(memory);
            order.push_back(*memory);  // the free waits its turn
            node.sync();
        }
        node.env().kernel_handle().dispatch([&] { order.push_back(4); });
    });
    node.sync();
    node.sync();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(node.env().dispatcher().get_nr_dispatched(), before + 5);
}

TEST(WorkerQueueDeathTest, MisuseStops) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto run = [](void (*task)(CompNode)) {
        const CompNode node = worker_node(6);
        node.add_callback([=] { task(node); });
        node.sync();
    };
    EXPECT_DEATH(run([](CompNode node) { node.sync(); }), "");
    EXPECT_DEATH(run([](CompNode node) {
                     const kern::DispatcherStep step(node.env().dispatcher());
                     worker_node(6, 1).sync();
                 }),
                 "");
    EXPECT_EXIT(
        {
            worker_node(6).add_callback(kern::Task());
            worker_node(6).sync();
        },
        testing::KilledBySignal(SIGABRT), "");
    EXPECT_DEATH(
        {
            CpuWorkerQueue queue({CompNode::DeviceType::CPU, 0, 0});
            queue.add([] {});
        },
        "");
    EXPECT_DEATH(
        {
            CpuWorkerQueue queue({CompNode::DeviceType::CPU, 0, 0});
            queue.end();
            queue.add([] {});
        },
        "");
    EXPECT_DEATH(set_affinity({processor_count()}), "");
}

}  // namespace
}  // namespace orb
