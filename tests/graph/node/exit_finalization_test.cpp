// What happens to nodes and their objects when the process ends, each case in a process of its own.
#include "graph/node/exit_finalization.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
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

std::vector<int> finalized_order, expected_order;

class Bound final : public NodeBoundObject {
public:
    Bound(int number, CompNode node)
        : m_number(number),
          m_tensor(node, {8}, kern::DType::Float32()),
          m_operator(node.env().kernel_handle().create_operator<kern::Relayout>()) {
        m_tensor.raw_ptr();
    }
    void use() const { check_not_finalized(); }

private:
    std::shared_ptr<void> on_node_finalize() override {
        require(!is_finalized());
        finalized_order.push_back(m_number);
        m_operator.reset();
        m_tensor = DeviceTensorND();
        return std::move(self);
    }

public:
    std::shared_ptr<Bound> self;  // the only owner of an object that owns itself

private:
    int m_number;
    DeviceTensorND m_tensor;
    std::unique_ptr<kern::Relayout> m_operator;
};

struct HoldsOperator {
    static const char TAG;
    std::unique_ptr<kern::Relayout> relayout;
    DeviceTensorND tensor;
};
const char HoldsOperator::TAG = 0;

// Made before any node, so it is destroyed after the finalization that the first load registers.
struct StaticOwner {
    std::vector<DeviceTensorND> device;
    std::vector<HostTensorND> host;
    std::unique_ptr<Bound> bound;
    ~StaticOwner() {
        if (device.empty())
            return;
        require(bound->is_finalized() && finalized_order == expected_order);
        require(device[0].comp_node().env().is_finalized() && !cpu_late_free_happened());
        finalize_nodes();
        device[0].comp_node().sync();
        bound.reset();
        device.clear();  // all of inline nodes, whose frees are never late
        require(!cpu_late_free_happened());
        host.clear();
        require(cpu_late_free_happened());
    }
};
StaticOwner static_owner;

TEST(ExitFinalizationDeathTest, StaticDestructorsMayReleaseLate) {
    const auto run = [](bool early, std::vector<int> order) {
        expected_order = std::move(order);
        const CompNode node = CompNode::load("cpu:default");
        const CompNode named = CompNode::load({CompNode::DeviceType::CPU, -1024, 0},
                                              {CompNode::DeviceType::CPU, 30, 0});
        // A second device type registers a second run.
        const CompNode dsp = CompNode::load("hexagon0");
        for (const CompNode place : {node, named, dsp, CompNode::default_cpu()}) {
            static_owner.device.emplace_back(place, kern::TensorShape{1000}, kern::DType::Int8())
                .raw_ptr();
            static_owner.host.emplace_back(place, kern::TensorShape{1000}, kern::DType::Int8())
                .raw_ptr();
        }
        static_owner.bound = std::make_unique<Bound>(1, node);
        auto owns_itself = std::make_shared<Bound>(2, node);
        owns_itself->self = owns_itself;
        owns_itself.reset();
        static Bound function_static(3, CompNode::default_cpu());
        std::make_unique<Bound>(4, node).reset();
        {
            const std::lock_guard<RecursiveSpinLock> lock(node.env().user_data_lock());
            auto holder = std::make_shared<HoldsOperator>();
            holder->relayout = node.env().kernel_handle().create_operator<kern::Relayout>();
            holder->tensor = static_owner.device[1];  // another node's, finalized later
            node.env().user_data().add(&HoldsOperator::TAG, holder);
        }
        if (early)
            finalize_nodes();
        std::exit(GOOD_EXIT);
    };
    // The exit destroys `function_static`, made after the registration, before it finalizes.
    EXPECT_EXIT(run(false, {2, 1}), testing::ExitedWithCode(GOOD_EXIT), "");
    EXPECT_EXIT(run(true, {3, 2, 1}), testing::ExitedWithCode(GOOD_EXIT), "");
}

TEST(ExitFinalizationDeathTest, UseAfterwardsStops) {
    const CompNode node = CompNode::load("cpu:default");
    const Bound bound(1, node);
    const auto dies = [&](void (*use)(CompNode, const Bound&)) {
        EXPECT_DEATH((finalize_nodes(), use(node, bound)), "");
    };
    dies([](CompNode, const Bound& object) { object.use(); });
    dies([](CompNode, const Bound&) { CompNode::load("cpu:default"); });
    dies([](CompNode place, const Bound&) { place.alloc_device(1); });
    dies([](CompNode place, const Bound&) { place.env().kernel_handle(); });
    dies([](CompNode place, const Bound&) { place.copy_to_device(nullptr, nullptr, 0); });
    bound.use();
}

}  // namespace
}  // namespace orb
