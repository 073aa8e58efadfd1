// Recording what is given to a node, and running it again.
#include "graph/node/cpu_task_recorder.h"

#include <gtest/gtest.h>

#include <functional>
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
    using Use = std::function<void(CompNode, TaskRecorder&)>;
    const auto task = [](CompNode node) { node.add_callback([] {}); };
    const Use uses[] = {
        [](CompNode node, TaskRecorder&) { node.make_recorder(); },
        [](CompNode, TaskRecorder& recorder) { recorder.replay(); },
        [](CompNode, TaskRecorder& recorder) { recorder.end_dry_run(); },
        [](CompNode node, TaskRecorder&) { node.alloc_device(1); },
        [](CompNode node, TaskRecorder&) { node.free_device(nullptr); },
        [task](CompNode node, TaskRecorder&) { node.sync(), task(node); },
        [](CompNode, TaskRecorder& recorder) {
            recorder.begin_dry_run();
            recorder.begin_dry_run();
        },
        [task](CompNode node, TaskRecorder& recorder) {
            task(node);
            recorder.begin_dry_run();
            recorder.end_dry_run();
        },
        [](CompNode, TaskRecorder& recorder) { recorder.begin_dry_run(), recorder.stop(); },
        [](CompNode, TaskRecorder& recorder) { recorder.stop(), recorder.stop(); },
        [](CompNode, TaskRecorder& recorder) { recorder.stop(), recorder.begin_dry_run(); },
        [](CompNode, TaskRecorder& recorder) { std::thread([&] { recorder.stop(); }).join(); },
        [](CompNode node, TaskRecorder&) {
            const auto event = CompNode::load("cpu:default").create_event();
            const CompNode other = worker_node(22);
            Gate gate(other);
            const auto late = other.create_event();
            late->record();
            late->wait_on_node(node);
        },
    };
    for (size_t i = 0; i < std::size(uses); ++i) {
        EXPECT_DEATH(
            {
                const CompNode node = worker_node(21);
                uses[i](node, *node.make_recorder());
            },
            "")
            << i;
    }
    EXPECT_DEATH(CompNode::default_cpu().make_recorder(), "");
}

}  // namespace
}  // namespace orb
