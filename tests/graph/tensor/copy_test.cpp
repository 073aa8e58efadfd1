#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include "graph/tensor/tensor.h"
#include "kernels/check.h"
#include "kernels/types/image_format.h"

namespace orb {
namespace {

using kern::DType;
using kern::TensorLayout;

constexpr size_t ROWS = 3;
constexpr size_t COLUMNS = 4;

// A tensor and the {3, 4} part of it that takes part in a copy.
struct Kind {
    kern::TensorShape whole;
    TensorSlice rows, columns;
};
const TensorSlice ALL, EVERY_OTHER{{}, {}, 2}, REVERSED{{}, {}, -1};
const Kind KINDS[] = {
    {{ROWS, COLUMNS}, ALL, ALL},
    {{ROWS, COLUMNS + 3}, ALL, {2, 6, {}}},
    {{ROWS + 2, COLUMNS}, {1, 4, {}}, ALL},  // one run inside
    {{2 * ROWS, 2 * COLUMNS}, EVERY_OTHER, EVERY_OTHER},
    {{ROWS, COLUMNS}, REVERSED, REVERSED},
    {{COLUMNS, ROWS}, ALL, ALL},  // transposed
    {{1, COLUMNS}, ALL, ALL},     // broadcast, which only a source can be
};

template <typename Tensor>
Tensor part_of(const Tensor& whole, const Kind& kind) {
    Tensor part = whole[{kind.rows, kind.columns}];
    if (part.shape(0) == COLUMNS)
        part.reset(whole.storage(), whole.layout().permuted({1, 0}));
    if (part.shape(0) == 1)
        part.reset(whole.storage(), whole.layout().broadcast_to({ROWS, COLUMNS}));
    return part;
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
    for (const Kind& from : KINDS) {
        const Source whole_source(source_node, from.whole, DType::Int32());
        int32_t* first = whole_source.template ptr<int32_t>();
        std::iota(first, first + from.whole.element_count(), 100);
        const Source source = part_of(whole_source, from);
        Dest fresh;
        fresh.copy_from(source);
        EXPECT_EQ(values(fresh), values(source)) << &from - KINDS;
        EXPECT_TRUE(fresh.layout().is_dense() && fresh.comp_node() == source_node);
        for (const Kind& to : KINDS) {
            if (to.whole[0] == 1)
                continue;
            SCOPED_TRACE(testing::Message() << &from - KINDS << " to " << &to - KINDS);
            const Dest whole(dest_node, to.whole, DType::Int32());
            const size_t nr_elements = to.whole.element_count();
            int32_t* begin = whole.template ptr<int32_t>();
            std::fill_n(begin, nr_elements, -1);
            Dest dest = part_of(whole, to);
            dest.copy_from_fixlayout(source);
            EXPECT_EQ(values(dest), values(source));
            EXPECT_EQ(static_cast<size_t>(std::count(begin, begin + nr_elements, -1)),
                      nr_elements - ROWS * COLUMNS);
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
