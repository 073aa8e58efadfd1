#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include "graph/tensor/tensor.h"
#include "kernels/check.h"
#include "kernels/image_format.h"

namespace orb {
namespace {

using kern::DType;
using kern::TensorLayout;

constexpr size_t ROWS = 3;
constexpr size_t COLUMNS = 4;

// A tensor and the {3, 4} part of it that takes part in a copy.
template <typename Tensor>
struct Part {
    Tensor whole;
    Tensor part;
};

template <typename Tensor>
Part<Tensor> sliced(CompNode node, const kern::TensorShape& shape, TensorSlice rows,
                    TensorSlice columns) {
    const Tensor whole(node, shape, DType::Int32());
    return {whole, whole[{rows, columns}]};
}

constexpr int NR_KINDS = 7;
constexpr int BROADCAST = 6;  // a source only

template <typename Tensor>
Part<Tensor> make_part(CompNode node, int kind) {
    const TensorSlice all, other{{}, {}, 2}, reversed{{}, {}, -1};
    switch (kind) {
        case 0:
            return sliced<Tensor>(node, {ROWS, COLUMNS}, all, all);
        case 1:
            return sliced<Tensor>(node, {ROWS, COLUMNS + 3}, all, {2, 6, {}});
        case 2:
            return sliced<Tensor>(node, {ROWS + 2, COLUMNS}, {1, 4, {}}, all);  // one run inside
        case 3:
            return sliced<Tensor>(node, {2 * ROWS, 2 * COLUMNS}, other, other);
        case 4:
            return sliced<Tensor>(node, {ROWS, COLUMNS}, reversed, reversed);
        case 5: {
            Part<Tensor> result = sliced<Tensor>(node, {COLUMNS, ROWS}, all, all);
            result.part.reset(result.whole.storage(), result.whole.layout().permuted({1, 0}));
            return result;
        }
        default: {
            Part<Tensor> result = sliced<Tensor>(node, {1, COLUMNS}, all, all);
            result.part.reset(result.whole.storage(),
                              result.whole.layout().broadcast_to({ROWS, COLUMNS}));
            return result;
        }
    }
}

template <typename Tensor>
std::vector<int32_t> values(const Tensor& tensor) {
    const TensorLayout& layout = tensor.layout();
    std::vector<int32_t> result;
    for (size_t row = 0; row < ROWS; ++row) {
        for (size_t column = 0; column < COLUMNS; ++column)
            result.push_back(*(tensor.template ptr<int32_t>() +
                               static_cast<ptrdiff_t>(row) * layout.stride[0] +
                               static_cast<ptrdiff_t>(column) * layout.stride[1]));
    }
    return result;
}

template <typename Dest, typename Source>
void check_copies(CompNode dest_node, CompNode source_node) {
    for (int from = 0; from < NR_KINDS; ++from) {
        const auto source = make_part<Source>(source_node, from);
        const size_t nr_source = source.whole.layout().element_count();
        std::iota(source.whole.template ptr<int32_t>(),
                  source.whole.template ptr<int32_t>() + nr_source, 100);
        Dest fresh;
        fresh.copy_from(source.part);
        EXPECT_EQ(values(fresh), values(source.part)) << from;
        EXPECT_TRUE(fresh.layout().is_dense() && fresh.comp_node() == source_node);
        for (int to = 0; to < BROADCAST; ++to) {
            SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
            auto dest = make_part<Dest>(dest_node, to);
            const size_t nr_dest = dest.whole.layout().element_count();
            int32_t* begin = dest.whole.template ptr<int32_t>();
            std::fill(begin, begin + nr_dest, -1);
            dest.part.copy_from_fixlayout(source.part);
            EXPECT_EQ(values(dest.part), values(source.part));
            EXPECT_EQ(static_cast<size_t>(std::count(begin, begin + nr_dest, -1)),
                      nr_dest - ROWS * COLUMNS);
        }
    }
}

TEST(TensorCopy, MovesElementsBetweenAllLayoutsAndForms) {
    const CompNode node = CompNode::load("cpu:default");
    const CompNode other =
        CompNode::load({CompNode::DeviceType::CPU, -1024, 0}, {CompNode::DeviceType::CPU, 40, 0});
    const CompNode host = CompNode::default_cpu();
    check_copies<HostTensorND, HostTensorND>(host, node);
    check_copies<HostTensorND, DeviceTensorND>(host, node);
    check_copies<DeviceTensorND, HostTensorND>(node, host);
    check_copies<DeviceTensorND, DeviceTensorND>(node, other);
}

TEST(TensorCopy, TakesNodeAndDtypeOfTheSource) {
    const CompNode node = CompNode::load("cpu:default");
    HostTensorND source(node, {2}, DType::Int32());
    source.ptr<int32_t>()[1] = 5;
    HostTensorND dest(CompNode::default_cpu());
    dest.copy_from(source);
    EXPECT_TRUE(dest.comp_node() == CompNode::default_cpu() && dest.dtype() == DType::Int32());
    EXPECT_EQ(dest.ptr<int32_t>()[1], 5);
    // Nothing to copy touches nothing, whatever the shape says.
    dest.copy_from(source.resize({3, 0}));
    EXPECT_EQ(dest.shape().to_string(), "{3,0}");
    DeviceTensorND untouched(node, {0}, DType::Int32());
    untouched.copy_from_fixlayout(HostTensorND(node, {0}, DType::Int32()));
    EXPECT_EQ(untouched.storage().capacity(), 0u);
    EXPECT_DEATH(HostTensorND().copy_from(HostTensorND()), "");
}

TEST(TensorCopy, LeavesThePaddingOfImagesAlone) {
    const CompNode node = CompNode::load("cpu:default");
    const TensorLayout padded({ROWS, COLUMNS}, DType::Int32(), kern::image_pack4_format(1, 32));
    HostTensorND dense(node, {ROWS, COLUMNS}, DType::Int32());
    std::iota(dense.ptr<int32_t>(), dense.ptr<int32_t>() + ROWS * COLUMNS, 100);
    DeviceTensorND image(node, padded), copy(node, padded);
    image.memset_zero();
    image.copy_from_fixlayout(dense);
    EXPECT_EQ(values(image), values(dense));
    EXPECT_EQ(image.ptr<int32_t>()[COLUMNS], 0);
    copy.copy_from_fixlayout(image);
    EXPECT_EQ(values(copy), values(dense));
    HostTensorND fresh;
    fresh.copy_from(copy);
    EXPECT_EQ(values(fresh), values(dense));
    EXPECT_TRUE(fresh.layout().is_dense_raw());
}

class PrintingHandler final : public kern::KernelErrorHandler {
    void on_error(const std::string& text) override { fprintf(stderr, "<%s>", text.c_str()); }
    void on_reshape_error(const std::string&) override {}
};

TEST(TensorCopyDeathTest, MismatchesStop) {
    static PrintingHandler handler;
    const auto report = [](auto action) {
        kern::set_kernel_error_handler(&handler);
        action();
    };
    const CompNode node = CompNode::load("cpu:default");
    HostTensorND ints(node, {2, 2}, DType::Int32());
    HostTensorND floats(node, {2, 2}, DType::Float32());
    EXPECT_DEATH(report([&] { ints.copy_from(floats); }), "<.*Int32.*Float32.*>");
    EXPECT_DEATH(report([&] { ints.copy_from_fixlayout(floats); }), "<.*Int32.*Float32.*>");
    EXPECT_DEATH(report([&] { ints.copy_from(HostTensorND(node)); }), "<.*Int32.*invalid.*>");
    EXPECT_DEATH(ints.copy_from_fixlayout(HostTensorND(node, {4}, DType::Int32())), "");

    HostTensorND self_overlap;
    self_overlap.reset(ints.storage(), TensorLayout({1}, DType::Int32()).broadcast_to({2, 2}));
    EXPECT_DEATH(self_overlap.copy_from_fixlayout(HostTensorND(node, {2, 2}, DType::Int32())), "");
}

TEST(TensorCopyDeathTest, OverlappingRangesStop) {
    const CompNode node = CompNode::load("cpu:default");
    const DeviceTensorND whole(node, {10}, DType::Int8());
    std::iota(whole.raw_ptr(), whole.raw_ptr() + 10, uint8_t{0});
    const auto part = [&](ptrdiff_t begin, ptrdiff_t end, ptrdiff_t step) {
        return whole[{{begin, end, step}}];
    };
    part(0, 5, 1).copy_from(part(5, 10, 1));  // neighbours
    EXPECT_EQ(whole.raw_ptr()[0], 5);
    part(9, 4, -1).copy_from_fixlayout(part(0, 5, 1));
    EXPECT_EQ(whole.raw_ptr()[9], 5);
    EXPECT_DEATH(part(0, 5, 1).copy_from(part(4, 9, 1)), "");
    EXPECT_DEATH(part(4, 9, 1).copy_from_fixlayout(part(0, 5, 1)), "");
    EXPECT_DEATH(part(8, 3, -1).copy_from_fixlayout(part(0, 5, 1)), "");
    // Spans count, not elements: these interleave.
    EXPECT_DEATH(part(0, 9, 2).copy_from_fixlayout(part(1, 10, 2)), "");
}

}  // namespace
}  // namespace orb
