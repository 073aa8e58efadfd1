// Events between nodes and on the host.
#include "graph/node/cpu_event.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/graph/node/workers.h"

namespace orb {
namespace {

using namespace orb_test;
constexpr uint32_t TIMED = CompNodeEvent::TIMESTAMP;

TEST(Event, OrdersTheTasksOfTwoNodes) {
    const Watchdog watchdog;
    const CompNode first = worker_node(10);
    for (const CompNode second : {worker_node(11), worker_node(10, 1), CompNode::default_cpu()}) {
        const auto ping = first.create_event(TIMED), pong = second.create_event();
        const auto begin = first.create_event(TIMED);
        begin->record();
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
        EXPECT_GT(begin->elapsed_until(*ping), 1e-9 * count);
        EXPECT_LT(begin->elapsed_until(*ping), 300);
    }
}

TEST(Event, WaitsForTheRecordAtTheMomentOfTheCall) {
    const CompNode node = worker_node(12), other = worker_node(13);
    const auto event = node.create_event();
    Gate gate(node), second_gate(other);
    event->record();
    event->wait_on_node(other);
    EXPECT_FALSE(event->finished());
    Gate third_gate(node);
    event->record();
    gate.open();
    second_gate.open();
    other.sync();  // the last record holds nobody who asked before
    EXPECT_FALSE(event->finished());
    std::thread sleeper([&] { event->wait_on_host(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    third_gate.open();
    sleeper.join();
    EXPECT_TRUE(event->finished());
    node.sync();
}

TEST(Event, MayBeDestroyedRightAfterAWait) {
    const Watchdog watchdog;
    const CompNode node = worker_node(14), other = worker_node(15);
    for (int i = 0; i < 1000000 / SLOWER / SLOWER; ++i) {
        host_wait_mode = static_cast<HostWaitMode>(i < 2000 ? i / 16 % 3 : 0);
        const auto event = node.create_event(i % 5 == 0 ? TIMED : 0);
        event->record();
        if (i % 16 == 0)
            event->wait_on_node(other);  // which may be alone in keeping it alive
        if (i % 2 == 0)
            event->wait_on_host();
    }
    host_wait_mode = HostWaitMode::SPIN_THEN_SLEEP;
}

TEST(EventDeathTest, MisuseStops) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const CompNode node = CompNode::default_cpu();
    const auto recorded = [](CompNode on, uint32_t flags) {
        auto event = on.create_event(flags);
        event->record();
        return event;
    };
    const auto timed = recorded(node, TIMED);
    EXPECT_DEATH(node.create_event()->finished(), "");
    EXPECT_DEATH(node.create_event()->wait_on_host(), "");
    EXPECT_DEATH(node.create_event()->wait_on_node(node), "");
    EXPECT_DEATH(timed->wait_on_node(CompNode::load("hexagon0")), "");
    EXPECT_DEATH(timed->elapsed_until(*recorded(node, 0)), "");
    EXPECT_DEATH(timed->elapsed_until(*node.create_event(TIMED)), "");
    EXPECT_DEATH(timed->elapsed_until(*recorded(CompNode::load("cpu:default"), TIMED)), "");
}

}  // namespace
}  // namespace orb
