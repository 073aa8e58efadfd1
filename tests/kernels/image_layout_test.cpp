// Operators on images with padded rows: the results of dense tensors, whatever the padding holds,
// and none of it is written.
#include <deque>
#include <functional>

#include "kernels/operators/arg_max.h"
#include "kernels/operators/cond_take.h"
#include "kernels/operators/cumsum.h"
#include "kernels/operators/elementwise.h"
#include "kernels/operators/elementwise_multi_type.h"
#include "kernels/operators/reduce.h"
#include "kernels/operators/sorting.h"
#include "kernels/operators/type_cvt.h"
#include "kernels/types/image_format.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using Raws = std::vector<RawTensor>;
using Layouts = std::vector<TensorLayout>;
using Call = std::function<void(const Raws& in, const Raws& out)>;

const DType f32 = DType::Float32(), i32 = DType::Int32(), q8 = DType::QuantizedS8(0.5f);
constexpr size_t ROW_ALIGNMENT = 64;

// Rows of whole pixels become rows of an image; other shapes stay as they are, and all do for 0.
TensorLayout padded(const TensorLayout& dense, size_t align_axis) {
    if (align_axis == 0 || dense.ndim <= align_axis || dense[dense.ndim - 1] % 4 != 0)
        return dense;
    return {dense, dense.dtype, kern::image_pack4_format(align_axis, ROW_ALIGNMENT)};
}

struct Tensors {
    std::deque<Tensor> tensors;  // all memory starts as 0xff bytes, NaN in a float
    Raws raws;

    Tensors(const Layouts& layouts, size_t align_axis) {
        for (const TensorLayout& layout : layouts)
            raws.push_back(tensors.emplace_back(padded(layout, align_axis)).raw());
    }
    void fill() {
        std::mt19937 random(7);
        for (Tensor& tensor : tensors)
            tensor.fill_uniform(random, -9, 9);
    }
};

// `run` with dense tensors, and with others whose rows are padded.
void expect_padding_is_ignored(const Layouts& in, const Layouts& out, bool also_mixed,
                               const Call& run, const std::string& what) {
    Tensors from(in, 0), wanted(out, 0);
    from.fill();
    run(from.raws, wanted.raws);
    using Axes = std::pair<size_t, size_t>;
    for (const auto& [in_axis, out_axis] : {Axes(1, 1), Axes(2, 2), Axes(0, 1), Axes(1, 0)}) {
        if (in_axis != out_axis && !also_mixed)
            continue;
        Tensors inputs(in, in_axis), outputs(out, out_axis), expected(out, out_axis);
        inputs.fill();
        run(inputs.raws, outputs.raws);
        for (size_t t = 0; t < out.size(); ++t) {
            for (size_t i = 0; i < out[t].element_count(); ++i)
                expected.tensors[t].set(i, wanted.tensors[t].get(i));
            EXPECT_TRUE(outputs.tensors[t].bytes() == expected.tensors[t].bytes())
                << what << " " << t << ", rows from axis " << in_axis << " to " << out_axis;
        }
    }
}

// exec(inputs..., outputs..., workspace); the workspace has no alignment where `offset` is odd.
template <typename Operator>
void check(kern::HandleLevel level, const typename Operator::Param& param, const Layouts& in,
           const Layouts& out, size_t offset = 0) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<Operator>();
    op->param() = param;
    alignas(64) static uint8_t memory[1 << 14];
    const kern::Workspace workspace{memory + offset, sizeof(memory) - offset};
    const Call run = [&](const Raws& from, const Raws& to) {
        if constexpr (std::is_base_of<kern::Elementwise, Operator>::value ||
                      std::is_base_of<kern::ElementwiseMultiType, Operator>::value)
            op->exec(from, to[0]);
        else if constexpr (std::is_same<Operator, kern::Argsort>::value)
            op->exec(from[0], to[0], to[1], workspace);
        else if constexpr (std::is_same<Operator, kern::TopK>::value)
            op->exec(-4, from[0], to[0], to[1], workspace);
        else if constexpr (std::is_same<Operator, kern::CondTake>::value)
            op->exec(from[0], from[1], workspace,
                     [&to, next = size_t{0}](DType dtype, const TensorShape& shape) mutable {
                         return RawTensor(to[next++].raw_ptr, TensorLayout(shape, dtype));
                     });
        else
            op->exec(from[0], to[0], workspace);
    };
    // Cumsum takes tensors of one layout.
    expect_padding_is_ignored(in, out, !std::is_same<Operator, kern::Cumsum>::value, run,
                              std::string(typeid(Operator).name()) + level_name(level));
}

TEST(ImageLayout, PaddingIsNeitherReadNorWritten) {
    const TensorShape shape({3, 5, 12}), rows({5, 12});
    const auto like = [&](DType dtype) { return TensorLayout(shape, dtype); };
    for (kern::HandleLevel level : LEVELS) {
        for (DType type : {f32, DType::Float16(), DType::Int8(), i32}) {
            const Layouts same{like(type)};
            check<kern::Elementwise>(level, {kern::ElementwiseMode::RELU}, same, same);
            check<kern::Elementwise>(level, {kern::ElementwiseMode::SUB}, {like(type), like(type)},
                                     same);
            check<kern::Elementwise>(level, {kern::ElementwiseMode::MUL},
                                     {like(type), TensorLayout({1}, type)}, same);
            for (int32_t axis = 0; axis < 3; ++axis) {
                TensorShape one = shape;
                one[static_cast<size_t>(axis)] = 1;
                for (auto mode :
                     {kern::ReduceMode::SUM, kern::ReduceMode::SUM_SQR, kern::ReduceMode::MEAN})
                    check<kern::Reduce>(level, {mode, axis}, same, {TensorLayout(one, type)});
                check<kern::ArgMax>(level, {axis}, same, {TensorLayout(one, i32)});
                check<kern::Cumsum>(level, {axis, false, axis == 1}, same, same);
            }
            check<kern::CondTake>(level, {kern::CondTakeMode::GREATER, 0}, {like(type), like(f32)},
                                  {TensorLayout({180}, type), TensorLayout({180}, i32)});
            for (auto mode : {kern::TopKMode::UNORDERED, kern::TopKMode::ORDERED})
                check<kern::TopK>(level, {mode}, {TensorLayout(rows, type)},
                                  {TensorLayout({5, 4}, type), TensorLayout({5, 4}, i32)}, 1);
        }
        // Converted in the workspace, and in vectors where a level has them.
        check<kern::Reduce>(level, {kern::ReduceMode::MEAN, 1}, {like(q8)},
                            {TensorLayout({3, 1, 12}, q8)});
        check<kern::ElementwiseMultiType>(level, {kern::MultiTypeMode::QUANTISED_ADD},
                                          {like(q8), like(q8)}, {like(q8)});
        check<kern::Argsort>(level, {}, {TensorLayout(rows, f32)},
                             {TensorLayout(rows, f32), TensorLayout(rows, i32)});
        const auto handle = make_handle(level);
        const auto convert = handle->create_operator<kern::TypeCvt>();
        const Call run = [&](const Raws& in, const Raws& out) { convert->exec(in[0], out[0]); };
        expect_padding_is_ignored({like(f32)}, {like(i32)}, true, run, "conversion");
        expect_padding_is_ignored({like(DType::QuantizedS32(0.5f))}, {like(q8)}, true, run,
                                  "rescaling");
    }
}

}  // namespace
}  // namespace kern_test
