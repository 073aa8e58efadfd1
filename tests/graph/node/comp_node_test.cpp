#include "graph/node/comp_node.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <numeric>
#include <tuple>
#include <vector>

#include "graph/node/comp_node_env.h"
#include "graph/node/comp_node_event.h"
#include "graph/node/node_bound_object.h"
#include "graph/node/task_recorder.h"
#include "graph/tensor/tensor.h"
#include "kernels/handle.h"
#include "kernels/operators/relayout.h"
#include "tests/threads.h"

namespace orb {
namespace {

using Locator = CompNode::Locator;
using Type = CompNode::DeviceType;

TEST(CompNode, NodesAreKnownByTheirLogicalLocator) {
    const CompNode node = CompNode::load("cpu:default");
    EXPECT_TRUE(node == CompNode::load("cpu:default"));
    EXPECT_TRUE(node == node.with_stream(0));
    EXPECT_EQ(node.to_string(), "cpu:default");
    EXPECT_TRUE(node != CompNode::default_cpu());
    EXPECT_TRUE((CompNode::default_cpu().locator() == Locator{Type::CPU, -1024, -1}));
    EXPECT_EQ(node.memory_space(), CompNode::default_cpu().memory_space());

    const Locator inline_place{Type::CPU, -1024, 0};
    const CompNode named = CompNode::load(inline_place, {Type::CPU, 7, 1});
    EXPECT_TRUE(named != node);
    EXPECT_TRUE(named != CompNode::load(inline_place, {Type::XPU, 7, 1}));
    EXPECT_TRUE((named.locator_logical() == Locator{Type::CPU, 7, 1}));
    EXPECT_TRUE(named.locator() == inline_place);
    EXPECT_TRUE(CompNode::load({Type::CPU, 5, 5}, {Type::CPU, 7, 1}) == named);
}

TEST(CompNodeDeathTest, ImpossibleNodesStop) {
    const Locator place{Type::CPU, -1024, 0};
    const struct {
        Locator physical, logical;
    } cases[] = {
        {{Type::XPU, 0, 0}, {Type::XPU, 0, 0}},
        {{Type::GPU, 0, 0}, {Type::GPU, 0, 0}},
        {{Type::FPGA, 0, 0}, {Type::FPGA, 0, 0}},
        {{Type::OPENCL, 0, 0}, {Type::OPENCL, 0, 0}},
        {{static_cast<Type>(6), 0, 0}, {Type::CPU, 0, 0}},
        {{Type::CPU, -1, 0}, {Type::CPU, -1, 0}},
        {{Type::CPU, -1024, 1}, {Type::CPU, -1024, 0}},
        {place, {Type::CPU, -2, 0}},
        {place, {Type::GPU, 0, 0}},
        {place, {Type::XPU, INT32_MAX - 1023, 0}},
        {{Type::HEXAGON, 1, 0}, {Type::HEXAGON, 0, 0}},
        {{Type::HEXAGON, 0, 1}, {Type::HEXAGON, 0, 0}},
        {{Type::HEXAGON, 0, 0}, {Type::CPU, 0, 0}},
    };
    for (const auto& c : cases)
        EXPECT_DEATH(CompNode::load(c.physical, c.logical), "");
    EXPECT_EXIT(
        {
            const auto fill = [&](int32_t device, int32_t count) {
                for (int32_t i = 0; i < count; ++i)
                    CompNode::load(place, {Type::XPU, device, i});
            };
            fill(1000, 1000);
            fill(1000, 1000);  // these exist
            _exit(7);
        },
        testing::ExitedWithCode(7), "");
    EXPECT_DEATH(
        {
            for (int32_t i = 0; i < 1025; ++i)
                CompNode::load(place, {Type::XPU, 1000, i});
        },
        "");
    EXPECT_DEATH(CompNode().sync(), "");
    EXPECT_DEATH(CompNode::load("cpu:default").make_recorder(), "");
}

TEST(CompNode, ReportsAlignedMemory) {
    const CompNode node = CompNode::load({Type::CPU, -1024, 0}, {Type::CPU, 20, 0});
    using Report = std::tuple<bool, void*, size_t>;
    std::vector<Report> reports;
    node.env().set_memory_callback([&](bool is_device, void* ptr, size_t size) {
        reports.emplace_back(is_device, ptr, size);
    });
    const size_t alignment = node.memory_alignment();
    EXPECT_EQ(alignment, kern::best_level() == kern::HandleLevel::X86 ? 64u : 32u);
    void* device = node.alloc_device(100);
    void* host = node.alloc_host(1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(device) % alignment, 0u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(host) % alignment, 0u);
    node.free_device(device);
    node.free_host(host);
    EXPECT_EQ(reports,
              (std::vector<Report>{
                  {true, device, 100}, {false, host, 1}, {true, device, 0}, {false, host, 0}}));
    node.env().set_memory_callback(nullptr);
    EXPECT_DEATH(node.alloc_device(SIZE_MAX / 2), "");
    const auto [total, available] = node.memory_status();
    EXPECT_GT(total, size_t{1} << 20);
    EXPECT_GE(available, total);
}

TEST(CompNode, CopiesBetweenKindsOfNodes) {
    const CompNode cpu = CompNode::load("cpu:default");
    const CompNode named = CompNode::load({Type::CPU, -1024, 0}, {Type::CPU, 21, 0});
    const CompNode dsp = CompNode::load("hexagon0");
    EXPECT_TRUE(dsp == CompNode::load("hexagon0:0"));
    EXPECT_EQ(dsp.to_string(), "hexagon0:0");
    EXPECT_NE(dsp.memory_space(), cpu.memory_space());
    EXPECT_EQ(dsp.make_recorder(), nullptr);
    const std::vector<CompNode> nodes{cpu, named, dsp, CompNode::default_cpu()};
    for (const CompNode from : nodes) {
        for (const CompNode to : nodes) {
            int result = 0;
            const int value = 42;
            void* source = from.alloc_device(sizeof(value));
            void* dest = to.alloc_device(sizeof(value));
            from.copy_to_device(source, &value, sizeof(value));
            from.copy_to_peer(to, dest, source, sizeof(value));
            from.copy_to_peer(to, nullptr, nullptr, 0);
            from.sync();
            to.copy_to_host(&result, dest, sizeof(value));
            to.sync();
            EXPECT_EQ(result, 42);
            from.free_device(source);
            to.free_device(dest);
        }
    }
    EXPECT_DEATH(dsp.env().kernel_handle(), "");
    EXPECT_DEATH(dsp.add_callback([] {}), "");
}

TEST(CompNodeEnv, KernelsShareOneHandleAndDispatcher) {
    CompNodeEnv& env = CompNode::load("cpu:default").env();
    EXPECT_EQ(&env.kernel_handle(), &env.kernel_handle());
    EXPECT_NE(&env.kernel_handle(), &CompNode::default_cpu().env().kernel_handle());
    const uint32_t before = env.dispatcher().get_nr_dispatched();
    env.kernel_handle().dispatch([] {});
    EXPECT_EQ(env.dispatcher().get_nr_dispatched(), before + 1);
    EXPECT_DEATH(env.init_cpu(CompNode::default_cpu(), std::make_shared<kern::InlineDispatcher>()),
                 "");
}

struct Counter {
    static const char TAG;
    explicit Counter(std::atomic<int>& made) { ++made; }
    int value = 0;
};
const char Counter::TAG = 0;

class Bound final : public NodeBoundObject {
    std::shared_ptr<void> on_node_finalize() override { return nullptr; }
};

TEST(CompNode, ManyThreadsShareTheInlineNode) {
    constexpr int NR_THREADS = 6, ROUNDS = 150;
    std::atomic<int> made{0};
    run_together(NR_THREADS, [&made](size_t t) {
        const int first_value = 1000 * static_cast<int>(t);
        for (int i = 0; i < ROUNDS; ++i) {
            const CompNode node = CompNode::load("cpu:default");
            CompNode::load({Type::CPU, -1024, 0}, {Type::CPU, 22, i % 8});
            const Bound first, second;
            {
                const std::lock_guard<RecursiveSpinLock> lock(node.env().user_data_lock());
                auto& data = node.env().user_data();
                data.get_or_make<Counter>([&] { return std::make_shared<Counter>(made); }).value++;
            }
            // A transpose, whose kernel all threads share.
            HostTensorND source(CompNode::default_cpu(), {3, 4}, kern::DType::Int32());
            std::iota(source.ptr<int>(), source.ptr<int>() + 12, first_value);
            DeviceTensorND dest(node, {4, 3}, kern::DType::Int32());
            DeviceTensorND turned;
            turned.reset(dest.storage(), dest.layout().permuted({1, 0}));
            turned.copy_from_fixlayout(source);
            EXPECT_EQ(dest.ptr<int>()[4], first_value + 5);
        }
    });
    EXPECT_EQ(made, 1);
    CompNodeEnv& env = CompNode::load("cpu:default").env();
    const std::lock_guard<RecursiveSpinLock> lock(env.user_data_lock());
    EXPECT_EQ(env.user_data().get<Counter>()->value, NR_THREADS * ROUNDS);
}

}  // namespace
}  // namespace orb
