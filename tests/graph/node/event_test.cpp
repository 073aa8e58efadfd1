// Events between nodes and on the host.
#include "graph/node/cpu_event.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/graph/node/workers.h"

namespace orb {
namespace {

using namespace orb_test;

TEST(Event, OrdersTheTasksOfTwoNodes) {
    const Watchdog watchdog;
    const CompNode first = worker_node(10);
    for (const CompNode second : {worker_node(11), worker_node(10, 1), CompNode::default_cpu()}) {
        const auto ping = first.create_event(), pong = second.create_event();
        int count = 0;  // plain: only the events order its uses
        for (int i = 0; i < 20000 / SLOWER; ++i) {
            first.add_callback([&count, i] { EXPECT_EQ(count++, 2 * i); });
            ping->record();
            ping->wait_on_node(second);
            second.add_callback([&count, i] { EXPECT_EQ(count++, 2 * i + 1); });
            pong->record();
            pong->wait_on_node(first);
        }
        pong->wait_on_host();
        EXPECT_EQ(count, 40000 / SLOWER);
        first.sync();
    }
}

TEST(Event, WaitsForTheRecordAtTheMomentOfTheCall) {
    const CompNode node = worker_node(12), other = worker_node(13);
    const auto event = node.create_event();
    event->record();
    event->wait_on_host();
    EXPECT_TRUE(event->finished());
    Gate gate(node);
    event->record();
    EXPECT_FALSE(event->finished());
    event->wait_on_node(other);
    bool passed = false;
    other.add_callback([&] { passed = true; });
    event->wait_on_node(other);
    Gate second_gate(node);
    event->record();
    gate.open();
    other.sync();  // the last record holds nobody who asked before
    EXPECT_TRUE(passed);
    EXPECT_FALSE(event->finished());
    second_gate.open();
    event->wait_on_host();
    EXPECT_TRUE(event->comp_node() == node);
}

TEST(Event, MayBeDestroyedRightAfterAWait) {
    const Watchdog watchdog;
    const CompNode node = worker_node(14), other = worker_node(15);
    constexpr HostWaitMode MODES[] = {HostWaitMode::SPIN_THEN_SLEEP, HostWaitMode::YIELD,
                                      HostWaitMode::SPIN};
    for (int i = 0; i < 1000000 / SLOWER / SLOWER; ++i) {
        host_wait_mode = i < 3000 ? MODES[i / 16 % 3] : HostWaitMode::SPIN_THEN_SLEEP;
        const auto event = node.create_event(i % 5 == 0 ? CompNodeEvent::TIMESTAMP : 0);
        event->record();
        if (i % 16 == 0)
            event->wait_on_node(other);  // which may be alone in keeping it alive
        if (i % 2 == 0)
            event->wait_on_host();
    }
    host_wait_mode = HostWaitMode::SPIN_THEN_SLEEP;
    other.sync();
}

TEST(Event, SleepingThreadsAreWoken) {
    const Watchdog watchdog;
    const CompNode node = worker_node(16);
    for (int i = 0; i < 20; ++i) {
        Gate gate(node);
        auto event = node.create_event();
        event->record();
        std::thread waiters[2];
        for (std::thread& waiter : waiters)
            waiter = std::thread([&] { event->wait_on_host(); });
        std::this_thread::sleep_for(std::chrono::milliseconds(i % 2 == 0 ? 10 : 0));
        gate.open();
        event->wait_on_host();
        for (std::thread& waiter : waiters)
            waiter.join();
        node.sync();
    }
}

TEST(Event, MeasuresTimeAlsoOnAnInlineNode) {
    for (const CompNode node : {worker_node(17), CompNode::default_cpu()}) {
        const auto begin = node.create_event(CompNodeEvent::TIMESTAMP);
        const auto end = node.create_event(CompNodeEvent::TIMESTAMP);
        begin->record();
        node.add_callback([] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); });
        end->record();
        end->wait_on_host();
        EXPECT_GE(begin->elapsed_until(*end), 0.02);
        EXPECT_LT(begin->elapsed_until(*end), 20);
    }
}

TEST(EventDeathTest, MisuseStops) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const CompNode node = CompNode::default_cpu();
    const auto event = [](CompNode on, uint32_t flags, bool recorded) {
        auto made = on.create_event(flags);
        if (recorded)
            made->record();
        return made;
    };
    const auto timed = event(node, CompNodeEvent::TIMESTAMP, true);
    EXPECT_DEATH(event(node, 0, false)->finished(), "");
    EXPECT_DEATH(event(node, 0, false)->wait_on_host(), "");
    EXPECT_DEATH(event(node, 0, false)->wait_on_node(node), "");
    EXPECT_DEATH(event(node, 0, true)->wait_on_node(CompNode::load("hexagon0")), "");
    EXPECT_DEATH(timed->elapsed_until(*event(node, 0, true)), "");
    EXPECT_DEATH(timed->elapsed_until(*event(node, CompNodeEvent::TIMESTAMP, false)), "");
    EXPECT_DEATH(
        timed->elapsed_until(*event(CompNode::load("cpu:default"), CompNodeEvent::TIMESTAMP, true)),
        "");
}

}  // namespace
}  // namespace orb
