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
#include "tests/threads.h"

namespace orb {
namespace {

using namespace orb_test;

TEST(WorkerQueue, ProducersKeepTheirOrderAndSyncWaitsForTheirOwn) {
    const Watchdog watchdog;
    constexpr size_t NR_PRODUCERS = 4, NR_TASKS = 40000 / SLOWER;
    std::vector<size_t> nr_run(NR_PRODUCERS, 0);  // plain: one worker, and syncs order the reads
    run_together(NR_PRODUCERS, [&](size_t p) {
        size_t& run = nr_run[p];
        const CompNode node = worker_node(1, static_cast<int>(p));
        std::mt19937 random(static_cast<uint32_t>(p));
        const auto alive = std::make_shared<int>();
        for (size_t i = 0; i < NR_TASKS; ++i) {
            node.add_callback([&run, i, alive] { EXPECT_EQ(run++, i); });
            if (random() % 1000 == 0) {
                node.sync();
                EXPECT_EQ(run, i + 1);
                EXPECT_EQ(alive.use_count(), 1);  // the tasks are destroyed too
            }
        }
        node.sync();
    });
    EXPECT_EQ(nr_run, std::vector<size_t>(NR_PRODUCERS, NR_TASKS));
}

TEST(WorkerQueue, NodesOfOneDeviceShareOneLateThread) {
    const auto nr_threads = [] {
        const std::filesystem::directory_iterator threads("/proc/self/task");
        return std::distance(begin(threads), end(threads));
    };
    spin_budget();
    // The thread that measured it has ended, but may be listed for a moment.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto before = nr_threads();
    static int device = 100;  // a new one when the test is repeated
    const CompNode first = worker_node(++device), second = worker_node(device, 1);
    first.sync();
    EXPECT_EQ(nr_threads(), before);
    first.add_callback([] {});
    second.add_callback([] {});
    second.sync();
    EXPECT_EQ(nr_threads(), before + 1);
}

// Tasks at about the moments at which the worker, or the thread that waits, falls asleep.
void add_around_sleep(CompNode node) {
    std::mt19937 random(1);
    for (int i = 0; i < 60; ++i) {
        const auto pause = [rounds = spin_budget() * (950 + random() % 120) / 1000] {
            spin_for(rounds, [] { return false; });
        };
        int value = 0;
        if (i % 3 == 0)
            node.add_callback(pause);
        node.add_callback([&value] { ++value; });
        node.sync();
        EXPECT_EQ(value, 1);
        if (i % 3 != 0)
            pause();
    }
}

TEST(WorkerQueue, NoTaskIsMissedAroundTheMomentOfSleep) {
    const Watchdog watchdog;
    add_around_sleep(worker_node(3));
    cpu_set_t before;
    ASSERT_EQ(sched_getaffinity(0, sizeof(before), &before), 0);
    const int core = sched_getcpu();
    set_affinity({core});
    enable_affinity = true;
    const CompNode::Locator place{CompNode::DeviceType::CPU, core, 9};
    add_around_sleep(CompNode::load(place, place));
    enable_affinity = false;
    sched_setaffinity(0, sizeof(before), &before);
}

TEST(WorkerQueue, AStepRunsItsOwnNodesKernelsInPlace) {
    const CompNode node = worker_node(5), neighbour = worker_node(5, 1);
    std::vector<int> order;
    int value = 0;
    int* memory = static_cast<int*>(node.alloc_device(sizeof(int)));
    const uint32_t before = node.env().dispatcher().get_nr_dispatched();
    Gate gate(node);
    node.copy_to_device(memory, &value, sizeof(value));
    value = 1;  // nothing was copied yet
    node.add_callback([&] {
        order.push_back(*memory);
        const kern::DispatcherStep step(node.env().dispatcher());
        neighbour.env().kernel_handle().dispatch([&] { order.push_back(4); });
        node.env().kernel_handle().dispatch([&] { order.push_back(2); });
        value = 3;
        node.copy_to_device(memory, &value, sizeof(value));
        node.free_device(memory);
        order.push_back(*memory);  // the free waits its turn
        node.sync();
    });
    gate.open();
    node.sync();
    node.sync();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(node.env().dispatcher().get_nr_dispatched(), before + 6);
}

TEST(WorkerQueueDeathTest, MisuseStops) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto run = [](void (*task)(CompNode)) {
        const CompNode node = worker_node(6);
        node.add_callback([=] { task(node); });
        node.sync();
        node.sync();
    };
    EXPECT_DEATH(run([](CompNode node) { node.sync(); }), "");
    EXPECT_DEATH(run([](CompNode node) {
                     const kern::DispatcherStep step(node.env().dispatcher());
                     worker_node(6, 1).sync();
                 }),
                 "");
    EXPECT_EXIT(run([](CompNode node) { node.add_callback(kern::Task()); }),
                testing::KilledBySignal(SIGABRT), "");
    const auto use_queue = [](bool end_first) {
        CpuWorkerQueue queue({CompNode::DeviceType::CPU, 0, 0});
        if (end_first)
            queue.end();
        queue.add([] {});
    };
    EXPECT_DEATH(use_queue(true), "");
    EXPECT_DEATH(use_queue(false), "");  // destroyed without a sync
    EXPECT_DEATH(set_affinity({processor_count()}), "");
}

}  // namespace
}  // namespace orb
