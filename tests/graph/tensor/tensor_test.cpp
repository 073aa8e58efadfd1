#include "graph/tensor/tensor.h"

#include <gtest/gtest.h>

#include <cstring>

namespace orb {
namespace {

using kern::DType;
using kern::TensorLayout;

CompNode cpu() {
    return CompNode::load("cpu:default");
}

HostTensorND counting(const kern::TensorShape& shape) {
    HostTensorND tensor(cpu(), shape, DType::Int32());
    for (size_t i = 0; i < shape.element_count(); ++i)
        tensor.ptr<int32_t>()[i] = static_cast<int32_t>(i);
    return tensor;
}

TEST(Tensor, ResizesWithoutTouchingMemory) {
    DeviceTensorND tensor(cpu(), DType::Int16());
    EXPECT_FALSE(tensor.shape_valid());
    tensor.resize({10, 10}).resize({2, 3});
    EXPECT_EQ(tensor.storage().size(), 12u);
    EXPECT_EQ(tensor.storage().capacity(), 0u);
    EXPECT_EQ(tensor.layout().to_string(), "{2(3),3(1)}");
    EXPECT_EQ(tensor.resize({4, 0}).storage().size(), 0u);
    EXPECT_EQ(DeviceTensorND(cpu(), {3}, DType::IntB4()).storage().size(), 2u);
    EXPECT_EQ(HostTensorND(cpu(), TensorLayout({5}, DType::Int32())).storage().size(), 20u);
    EXPECT_DEATH(DeviceTensorND(cpu()).resize({1}), "");
    EXPECT_DEATH(HostTensorND(cpu(), TensorLayout({2, 3}, DType::Int8()).permuted({1, 0})), "");
    EXPECT_DEATH(tensor.resize({SIZE_MAX / 2, 2}), "");
}

TEST(Tensor, ResetKeepsTheSpanInside) {
    HostTensorND tensor = counting({6});
    TensorLayout backwards({3}, DType::Int32());
    backwards.stride[0] = -1;
    HostTensorND part;
    part.reset(tensor.storage().sub(8), backwards);
    EXPECT_EQ(*part.ptr<int32_t>(), 2);
    EXPECT_DEATH(part.reset(tensor.storage().sub(4), backwards), "");
    part.reset(tensor.storage(), TensorLayout({6}, DType::Int32()));
    EXPECT_DEATH(part.reset(tensor.storage().sub(1), TensorLayout({6}, DType::Int32())), "");
    EXPECT_DEATH(part.reset(HostTensorStorage(), TensorLayout({1}, DType::Int8())), "");
    part.reset(HostTensorStorage(), TensorLayout(DType::Int8()));
    EXPECT_TRUE(part.empty() && !part.shape_valid());
}

TEST(Tensor, PartsShareTheMemory) {
    const HostTensorND tensor = counting({4, 5});
    const auto all = TensorSlice();
    const TensorSlice reversed{{}, {}, -1};
    const HostTensorND part = tensor[{{1, 3, {}}, {{}, {}, 2}}];
    EXPECT_EQ(part.layout().to_string(), "{2(5),3(2)}");
    EXPECT_EQ(*part.ptr<int32_t>(), 5);
    const HostTensorND turned = tensor[{reversed, reversed}];
    EXPECT_EQ(*turned.ptr<int32_t>(), 19);
    EXPECT_EQ(turned.layout().to_string(), "{4(-5),5(-1)}");
    // Back again reaches in front of the view's first byte.
    const HostTensorND back = turned[{reversed, reversed}];
    EXPECT_EQ(back.raw_ptr(), tensor.raw_ptr());
    EXPECT_TRUE(back.layout().same_layout(tensor.layout()));
    EXPECT_TRUE((tensor[{{4, {}, {}}}].empty()));
    EXPECT_EQ((tensor[{all, {2, 2, {}}}].shape(1)), 0u);
    EXPECT_EQ(tensor.storage().use_count(), 4);

    EXPECT_DEATH((tensor[{all, all, all}]), "");
    EXPECT_DEATH(tensor.sub({TensorLayout({1}, DType::Float32()), 0}), "");
    EXPECT_DEATH(tensor.sub({TensorLayout({1}, DType::Int32()), 21}), "");
    EXPECT_DEATH(tensor.sub({TensorLayout({2}, DType::Int32()), 19}), "");
    EXPECT_DEATH(tensor.sub({TensorLayout({1}, DType::Int32()), -1}), "");
}

TEST(Tensor, ChangesOfDtypeNodeAndStorageClearTheShape) {
    HostTensorND tensor = counting({4});
    EXPECT_TRUE(tensor.dtype(DType::Int32()).shape_valid());
    EXPECT_FALSE(HostTensorND(tensor).dtype(DType::Float32()).shape_valid());

    EXPECT_TRUE(tensor.storage(tensor.storage().sub(0)).shape_valid());
    EXPECT_TRUE(tensor.comp_node(CompNode::default_cpu()).shape_valid());
    EXPECT_FALSE(HostTensorND(tensor).storage(tensor.storage().sub(4)).shape_valid());
    EXPECT_FALSE(tensor.comp_node(CompNode::load("hexagon0"), true).shape_valid());
    EXPECT_TRUE(tensor.empty());
}

TEST(Tensor, ZeroesTheSpanOfTheLayout) {
    DeviceTensorND tensor(cpu(), {8}, DType::Int8());
    std::memset(tensor.raw_ptr(), 1, 8);
    DeviceTensorND part = tensor[{{5, 1, -2}}];  // elements 5 and 3
    part.memset_zero();
    EXPECT_EQ(std::memcmp(tensor.raw_ptr(), "\1\1\1\0\0\0\1\1", 8), 0);
    DeviceTensorND(cpu(), {0}, DType::Int8()).memset_zero();
    EXPECT_DEATH(DeviceTensorND(CompNode::load("hexagon0"), {1}, DType::Int8()).memset_zero(), "");
}

}  // namespace
}  // namespace orb
