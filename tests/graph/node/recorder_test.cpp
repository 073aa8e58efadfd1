// Recording what is given to a node, and running it again.
#include "graph/node/cpu_task_recorder.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "graph/node/comp_node_env.h"
#include "graph/node/comp_node_event.h"
#include "tests/graph/node/workers.h"

namespace orb {
namespace {

using namespace orb_test;

TEST(Recorder, ReplaysWhatItsThreadGaveAfterTheDryRun) {
    const CompNode node = worker_node(20);
    std::string log;
    int source = 1, copied = 0;
    const auto event = node.create_event(CompNodeEvent::TIMESTAMP);
    auto* memory = static_cast<int*>(node.alloc_device(sizeof(int)));

    const auto recorder = node.make_recorder();
    recorder->begin_dry_run();
    node.free_device(node.alloc_device(16));
    node.env().kernel_handle().dispatch([&] { log += "never"; });
    event->record();
    node.sync();
    recorder->end_dry_run();
    node.copy_to_device(memory, &source, sizeof(int));
    event->record();
    event->wait_on_node(CompNode::default_cpu());  // does nothing
    node.add_callback([&] {
        node.copy_to_host(&copied, memory, sizeof(int));
        node.sync();
        node.free_device(node.alloc_device(16));
        log += std::to_string(copied);
    });
    std::thread([&] {
        node.free_device(node.alloc_device(16));
        node.add_callback([&] { log += "w"; });
        node.sync();
    }).join();
    EXPECT_EQ(log, "w");
    recorder->stop();

    const uint32_t before = node.env().dispatcher().get_nr_dispatched();
    for (source = 5; source < 8; ++source) {
        node.add_callback([&] { log += "|"; });
        recorder->replay();  // after what the node was given before
    }
    EXPECT_EQ(log, "w|5|6|7");
    EXPECT_TRUE(event->finished());
    EXPECT_EQ(node.env().dispatcher().get_nr_dispatched(), before + 9);
    node.free_device(memory);

    // One that is not stopped gives the node free as it goes.
    node.make_recorder().reset();
    node.make_recorder()->stop();
    node.sync();
}

TEST(RecorderDeathTest, MisuseStops) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    using Node = CompNode;
    using Recorder = TaskRecorder;
    void (*const uses[])(Node, Recorder&) = {
        [](Node node, Recorder&) { node.make_recorder(); },
        [](Node, Recorder& recorder) { recorder.replay(); },
        [](Node, Recorder& recorder) { recorder.end_dry_run(); },
        [](Node node, Recorder&) { node.alloc_device(1); },
        [](Node node, Recorder&) { node.free_device(nullptr); },
        [](Node node, Recorder&) { node.sync(), node.add_callback([] {}); },
        [](Node, Recorder& recorder) { recorder.begin_dry_run(), recorder.begin_dry_run(); },
        [](Node node, Recorder& recorder) {
            node.add_callback([] {});
            recorder.begin_dry_run();
            recorder.end_dry_run();
        },
        [](Node, Recorder& recorder) { recorder.begin_dry_run(), recorder.stop(); },
        [](Node, Recorder& recorder) { recorder.stop(), recorder.stop(); },
        [](Node, Recorder& recorder) { recorder.stop(), recorder.begin_dry_run(); },
        [](Node, Recorder& recorder) { std::thread([&] { recorder.stop(); }).join(); },
        [](Node node, Recorder&) {
            Gate gate(worker_node(22));
            const auto late = worker_node(22).create_event();
            late->record();
            late->wait_on_node(node);
        },
    };
    for (size_t i = 0; i < std::size(uses); ++i)
        EXPECT_DEATH(uses[i](worker_node(21), *worker_node(21).make_recorder()), "") << i;
    EXPECT_DEATH(CompNode::default_cpu().make_recorder(), "");
}

}  // namespace
}  // namespace orb
