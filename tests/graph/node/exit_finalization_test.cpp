// What happens to nodes and their objects when the process ends, each case in a process of its own.
#include "graph/node/exit_finalization.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "graph/node/comp_node_env.h"
#include "graph/node/cpu_comp_node.h"
#include "graph/node/node_bound_object.h"
#include "graph/tensor/tensor.h"
#include "kernels/relayout.h"

namespace orb {
namespace {

constexpr int GOOD_EXIT = 17;
void require(bool condition) {
    if (!condition)
        _exit(1);
}

std::string finalized, expected;  // names of bound objects, in order

class Bound final : public NodeBoundObject {
public:
    Bound(char name, CompNode node)
        : m_name(name),
          m_tensor(node, {8}, kern::DType::Float32()),
          m_operator(node.env().kernel_handle().create_operator<kern::Relayout>()) {
        m_tensor.raw_ptr();
    }
    void use() const { check_not_finalized(); }

    std::shared_ptr<Bound> self;  // set where the object is its own only owner

private:
    std::shared_ptr<void> on_node_finalize() override {
        require(!is_finalized());
        finalized += m_name;
        m_operator.reset();
        m_tensor = DeviceTensorND();
        return std::move(self);
    }

    char m_name;
    DeviceTensorND m_tensor;
    std::unique_ptr<kern::Relayout> m_operator;
};

// Attached to a node.
struct Attached {
    static const char TAG;
    std::unique_ptr<kern::Relayout> relayout;
    DeviceTensorND tensor;
};
const char Attached::TAG = 0;

// Is there before the first node, whose making registers the finalization; so the exit destroys it
// last, and what it holds is released late.
struct OlderThanNodes {
    std::vector<DeviceTensorND> device;
    std::vector<HostTensorND> host;
    std::unique_ptr<Bound> bound;
    ~OlderThanNodes() {
        if (!bound)
            return;  // the process of the other tests
        require(finalized == expected && bound->is_finalized());
        require(device[0].comp_node().env().is_finalized() && !cpu_late_free_happened());
        finalize_nodes();  // once more: nothing is left to do
        device[0].comp_node().sync();
        bound.reset();
        device.clear();  // inline nodes free at once
        require(!cpu_late_free_happened());
        host.clear();
        require(cpu_late_free_happened());
    }
} older;

// Holds memory and operators in all the ways there are, and ends the process.
void live_and_exit(bool finalize_before, const char* order) {
    expected = order;
    const CompNode node = CompNode::load("cpu:default");
    const CompNode named =
        CompNode::load({CompNode::DeviceType::CPU, -1024, 0}, {CompNode::DeviceType::CPU, 30, 0});
    const CompNode dsp = CompNode::load("hexagon0");  // its type registers a second finalization
    for (const CompNode on : {node, named, dsp, CompNode::default_cpu()}) {
        older.device.emplace_back(on, kern::TensorShape{1000}, kern::DType::Int8()).raw_ptr();
        older.host.emplace_back(on, kern::TensorShape{1000}, kern::DType::Int8()).raw_ptr();
    }
    older.bound = std::make_unique<Bound>('a', node);
    auto owns_itself = std::make_shared<Bound>('b', node);
    owns_itself->self = owns_itself;
    owns_itself.reset();
    static Bound newer('c', CompNode::default_cpu());
    Bound('d', node);  // leaves at once
    auto attached = std::make_shared<Attached>();
    attached->relayout = node.env().kernel_handle().create_operator<kern::Relayout>();
    attached->tensor = older.device[1];  // of a node that is finalized later
    {
        const std::lock_guard<RecursiveSpinLock> lock(node.env().user_data_lock());
        node.env().user_data().add(&Attached::TAG, std::move(attached));
    }
    if (finalize_before)
        finalize_nodes();
    std::exit(GOOD_EXIT);
}

TEST(ExitFinalizationDeathTest, NewestObjectsGoFirstAndStaticsMayReleaseLate) {
    // A plain exit destroys `newer` before the finalization comes to it.
    EXPECT_EXIT(live_and_exit(false, "ba"), testing::ExitedWithCode(GOOD_EXIT), "");
    EXPECT_EXIT(live_and_exit(true, "cba"), testing::ExitedWithCode(GOOD_EXIT), "");
}

TEST(ExitFinalizationDeathTest, UseAfterwardsStops) {
    const CompNode node = CompNode::load("cpu:default");
    const Bound bound('a', node);
    const std::function<void()> uses[] = {
        [&] { bound.use(); },
        [&] { CompNode::load("cpu:default"); },
        [&] { node.alloc_device(1); },
        [&] { node.env().kernel_handle(); },
        [&] { node.copy_to_device(nullptr, nullptr, 0); },
    };
    for (const auto& use : uses)
        EXPECT_DEATH((finalize_nodes(), use()), "");
    bound.use();
}

}  // namespace
}  // namespace orb
