// What happens to nodes and to all that holds something of them when the process ends; each case in
// a process of its own. The first load of a node registers the finalization, so an exit
//  1. destroys static objects that are newer than that,
//  2. finalizes the objects bound to nodes, the newest first, and then the nodes,
//  3. destroys static objects that are older, whose memory of nodes is released late.
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
#include "kernels/operators/relayout.h"

namespace orb {
namespace {

constexpr int GOOD_EXIT = 17;

// Where no assertion reports any more.
void require(bool condition) {
    if (!condition)
        _exit(1);
}

std::string finalized;  // the names of bound objects, in the order in which they were told

// Holds memory and an operator of its node until it is finalized.
class Bound final : public NodeBoundObject {
public:
    Bound(char name, CompNode node)
        : m_name(name),
          m_tensor(node, {8}, kern::DType::Float32()),
          m_operator(node.env().kernel_handle().create_operator<kern::Relayout>()) {
        m_tensor.raw_ptr();
    }
    void use() const { check_not_finalized(); }

    std::shared_ptr<Bound> owner;  // itself, where nothing else owns the object

private:
    std::shared_ptr<void> on_node_finalize() override {
        require(!is_finalized());
        finalized += m_name;
        m_operator.reset();
        m_tensor = DeviceTensorND();
        return std::move(owner);
    }

    char m_name;
    DeviceTensorND m_tensor;
    std::unique_ptr<kern::Relayout> m_operator;
};

// Stage 3: made before any node. Looks at what the finalization did, then releases what is left.
struct OlderStatic {
    std::string expected_order;
    std::vector<DeviceTensorND> device;
    std::vector<HostTensorND> host;
    std::unique_ptr<Bound> bound;

    ~OlderStatic() {
        if (!bound)
            return;  // a process that runs other tests
        require(finalized == expected_order && bound->is_finalized());
        require(device[0].comp_node().env().is_finalized());
        finalize_nodes();  // finds nothing left to do
        device[0].comp_node().sync();

        require(!cpu_late_free_happened());
        bound.reset();
        device.clear();  // of inline nodes, which are never too late
        require(!cpu_late_free_happened());
        host.clear();
        require(cpu_late_free_happened());
    }
} older;

void add_memory_of(CompNode node) {
    const kern::TensorShape shape{1000};
    older.device.emplace_back(node, shape, kern::DType::Int8()).raw_ptr();
    older.host.emplace_back(node, shape, kern::DType::Int8()).raw_ptr();
}

// User data of a node.
struct Attachment {
    static const char TAG;
    std::unique_ptr<kern::Relayout> relayout;
    DeviceTensorND tensor;
};
const char Attachment::TAG = 0;

// Ends the process while all kinds of owners hold something of a node.
void exit_with_everything_alive(bool finalize_before, const char* expected_order) {
    older.expected_order = expected_order;
    const CompNode node = CompNode::load("cpu:default");
    const CompNode named =
        CompNode::load({CompNode::DeviceType::CPU, -1024, 0}, {CompNode::DeviceType::CPU, 30, 0});
    const CompNode dsp = CompNode::load("hexagon0");  // its type registers a second finalization
    for (CompNode each : {node, named, dsp, CompNode::default_cpu()})
        add_memory_of(each);

    older.bound = std::make_unique<Bound>('a', node);
    auto owns_itself = std::make_shared<Bound>('b', node);
    owns_itself->owner = owns_itself;
    owns_itself.reset();
    static Bound newer_static('c', CompNode::default_cpu());
    std::make_unique<Bound>('d', node).reset();  // is gone before the end

    auto attachment = std::make_shared<Attachment>();
    attachment->relayout = node.env().kernel_handle().create_operator<kern::Relayout>();
    attachment->tensor = older.device[1];  // of `named`, which is finalized later
    {
        const std::lock_guard<RecursiveSpinLock> lock(node.env().user_data_lock());
        node.env().user_data().add(&Attachment::TAG, std::move(attachment));
    }

    if (finalize_before)
        finalize_nodes();
    std::exit(GOOD_EXIT);
}

TEST(ExitFinalizationDeathTest, NewestObjectsGoFirstAndOlderStaticsReleaseLate) {
    // A plain exit destroys c before it finalizes.
    EXPECT_EXIT(exit_with_everything_alive(false, "ba"), testing::ExitedWithCode(GOOD_EXIT), "");
    EXPECT_EXIT(exit_with_everything_alive(true, "cba"), testing::ExitedWithCode(GOOD_EXIT), "");
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
