#include "graph/tensor/storage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "graph/node/comp_node_env.h"

namespace orb {
namespace {

CompNode cpu() {
    return CompNode::load("cpu:default");
}

template <typename Storage>
class StorageTest : public testing::Test {};
using Forms = testing::Types<HostTensorStorage, DeviceTensorStorage>;
TYPED_TEST_SUITE(StorageTest, Forms);

TYPED_TEST(StorageTest, AllocatesWhenTouched) {
    TypeParam storage(cpu());
    EXPECT_TRUE(storage.empty());
    storage.ensure_size(100).ensure_size(40);
    EXPECT_EQ(std::make_pair(storage.size(), storage.capacity()),
              std::make_pair(size_t{40}, size_t{0}));
    const uint8_t* first = storage.ptr();
    EXPECT_EQ(storage.capacity(), 40u);
    // Less needs no new memory, and growing back neither.
    storage.ensure_size(10);
    EXPECT_EQ(storage.ptr(), first);
    EXPECT_EQ(storage.ensure_size(40).ptr(), first);
    EXPECT_EQ(storage.capacity(), 40u);
    EXPECT_EQ(storage.use_count(), 1);
    std::memset(storage.ensure_size(41).ptr(), 0, 41);
    EXPECT_EQ(storage.capacity(), 41u);

    EXPECT_DEATH(TypeParam().ptr(), "");
    EXPECT_DEATH(TypeParam().ensure_size(1), "");
    TypeParam().ensure_size(0);
}

TYPED_TEST(StorageTest, AssignmentSharesRealMemory) {
    TypeParam source(cpu());
    source.ensure_size(16);
    const TypeParam copy = source;
    EXPECT_EQ(copy.capacity(), 16u);
    EXPECT_EQ(copy.ptr(), source.ptr());
    EXPECT_EQ(source.use_count(), 2);
    TypeParam assigned(CompNode::default_cpu());
    assigned = source;
    EXPECT_TRUE(assigned.comp_node() == cpu());
    // Growing replaces the memory of this object only.
    source.ensure_size(32).ptr();
    EXPECT_EQ(source.use_count(), 1);
    EXPECT_EQ(copy.ptr(), assigned.ptr());
    const TypeParam taken = std::move(assigned);
    EXPECT_EQ(taken.ptr(), copy.ptr());
    EXPECT_TRUE(assigned.empty() && assigned.use_count() == 0);
}

TYPED_TEST(StorageTest, ViewsNeverAllocate) {
    TypeParam storage(cpu());
    storage.ensure_size(16);
    TypeParam view = storage.sub(4).sub(2);
    EXPECT_EQ(view.ptr(), storage.ptr() + 6);
    EXPECT_EQ(view.size(), 10u);
    EXPECT_EQ(view.capacity(), 10u);
    EXPECT_EQ(view.offset(), 6u);
    EXPECT_FALSE(view.allow_realloc());
    EXPECT_EQ(view.shifted(-6).ptr(), storage.ptr());
    EXPECT_EQ(view.shifted(-6).size(), 16u);
    view.ensure_size(3).ptr();

    const TypeParam none = storage.sub(16);
    EXPECT_TRUE(none.empty() && none.comp_node() == cpu() && none.use_count() == 0);
    EXPECT_DEATH(storage.sub(17), "");
    EXPECT_DEATH(storage.sub(SIZE_MAX), "");
    EXPECT_DEATH(view.shifted(-7), "");
    EXPECT_DEATH(view.ensure_size(11), "");
    EXPECT_DEATH(TypeParam(none).ensure_size(1), "");
    EXPECT_DEATH(view.reset(cpu(), 4, nullptr), "");
}

TYPED_TEST(StorageTest, AdoptsMemoryAndChangesNodes) {
    const auto memory = std::shared_ptr<uint8_t>(new uint8_t[8], std::default_delete<uint8_t[]>());
    TypeParam storage;
    storage.reset(cpu(), 8, memory);
    EXPECT_EQ(storage.ptr(), memory.get());
    EXPECT_EQ(memory.use_count(), 2);
    storage.comp_node(CompNode::default_cpu());  // the same memory space
    EXPECT_EQ(storage.ptr(), memory.get());

    const CompNode dsp = CompNode::load("hexagon0");
    EXPECT_DEATH(storage.comp_node(dsp), "");
    EXPECT_DEATH(storage.comp_node(CompNode()), "");
    TypeParam view = storage.sub(3);
    view.comp_node(dsp, true);
    EXPECT_TRUE(view.size() == 0 && view.offset() == 0 && view.allow_realloc());
    storage.comp_node(dsp, true).ensure_size(9).ptr();
    EXPECT_EQ(memory.use_count(), 1);
}

TEST(Storage, CopiesBytesInAllDirections) {
    const CompNode dsp = CompNode::load("hexagon0");
    const auto round_trip = [](CompNode host_node, CompNode node) {
        HostTensorStorage source(host_node), result(CompNode::default_cpu());
        DeviceTensorStorage there(node), further(cpu());
        std::memcpy(source.ensure_size(8).ptr(), "abcdefgh", 8);
        there.ensure_size(8).copy_from(source, 8);
        further.ensure_size(5).copy_from(there, 5);
        result.ensure_size(7).copy_from(further, 5);
        HostTensorStorage copy(host_node);
        copy.ensure_size(9).copy_from(result, 5);
        EXPECT_EQ(std::memcmp(copy.ptr(), "abcde", 5), 0);
        EXPECT_DEATH(result.copy_from(source, 8), "");
        EXPECT_DEATH(there.copy_from(result, 8), "");
        result.copy_from(HostTensorStorage(), 0);
    };
    round_trip(CompNode::default_cpu(), cpu());
    round_trip(cpu(), cpu());
    round_trip(dsp, dsp);

    // Only the default node's host memory takes the bytes of another node.
    DeviceTensorStorage source(cpu());
    HostTensorStorage elsewhere(dsp);
    source.ensure_size(1);
    EXPECT_DEATH(elsewhere.ensure_size(1).copy_from(source, 1), "");
    EXPECT_DEATH(elsewhere.proxy_to_default_cpu(), "");
}

TEST(Storage, ProxySharesHostMemory) {
    HostTensorStorage host(cpu());
    host.ensure_size(12);
    DeviceTensorStorage proxy = host.sub(4).proxy_to_default_cpu();
    EXPECT_EQ(proxy.ptr(), host.ptr() + 4);
    EXPECT_EQ(host.use_count(), 2);
    EXPECT_TRUE(proxy.allow_realloc() && proxy.comp_node() == CompNode::default_cpu());
}

}  // namespace
}  // namespace orb
