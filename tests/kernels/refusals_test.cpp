// What operators, layouts, dtypes and formats refuse. A refused call must stop at a check and not
// crash later; the calls without an expectation are fine and must run.
#include "kernels/operators/arg_max.h"
#include "kernels/operators/batched_matrix_mul.h"
#include "kernels/operators/cond_take.h"
#include "kernels/operators/conv_bias.h"
#include "kernels/operators/convolution_backward.h"
#include "kernels/operators/convolution_forward.h"
#include "kernels/operators/cumsum.h"
#include "kernels/operators/elementwise.h"
#include "kernels/operators/elementwise_multi_type.h"
#include "kernels/operators/mask_conv.h"
#include "kernels/operators/reduce.h"
#include "kernels/operators/relayout.h"
#include "kernels/operators/sorting.h"
#include "kernels/operators/type_cvt.h"
#include "kernels/types/image_format.h"
#include "tests/kernels/matrix_mul_test_util.h"

namespace kern_test {
namespace {

using kern::image_pack4_format;
using kern::Workspace;

constexpr size_t LONG = PTRDIFF_MAX;  // of two such lengths, even the sum of elements is too large
constexpr size_t MANY = size_t{INT32_MAX} + 1;

const DType F32 = DType::Float32(), F16 = DType::Float16(), I8 = DType::Int8(),
            I16 = DType::Int16(), I32 = DType::Int32(), U8 = DType::Uint8(),
            S8 = DType::QuantizedS8(1), S32 = DType::QuantizedS32(1),
            A8 = DType::Quantized8Asymm(1, 1);

#define EXPECT_REFUSED(call) EXPECT_THROW(call, Refused)

// Tensors of one handle, all in the same zeroed memory.
class Refusals : public testing::TestWithParam<kern::HandleLevel> {
protected:
    const ThrowingChecks m_checks;
    static constexpr size_t MEMORY = 3u << 19;

    RawTensor at(const TensorLayout& layout) { return {m_memory.data(), layout}; }
    RawTensor at(const TensorShape& shape, DType dtype) { return at(TensorLayout(shape, dtype)); }
    // Rows with something between them.
    RawTensor loose(DType dtype) { return at(strided({2, 3}, {4, 1}, dtype)); }
    Workspace work(size_t bytes = MEMORY) { return {m_memory.data(), bytes}; }

    template <typename Operator, typename... Arguments>
    void run(typename Operator::Param param, const Arguments&... arguments) {
        const auto op = m_handle->create_operator<Operator>();
        op->param() = param;
        op->exec(arguments...);
    }

    std::unique_ptr<kern::KernelHandle> m_handle = make_handle(GetParam());
    std::vector<uint8_t> m_memory = std::vector<uint8_t>(MEMORY);
    const RawTensor x = at({2, 3}, F32), n = at({2, 3}, I32), column = at({2, 1}, F32);
    const RawTensor s8 = at({2, 3}, S8);
};
INSTANTIATE_TEST_SUITE_P(Levels, Refusals, testing::ValuesIn(LEVELS), [](const auto& level) {
    return std::string(level_name(level.param)).substr(0, 3) + std::to_string(level.index);
});

TEST_P(Refusals, CumsumAndArgSelect) {
    const auto sum = [&](int32_t axis, const RawTensor& src, const RawTensor& dst) {
        run<kern::Cumsum>({axis, true, false}, src, dst, work(0));
    };
    sum(-2, x, x);
    EXPECT_REFUSED(sum(2, x, x));
    EXPECT_REFUSED(sum(-3, x, x));
    EXPECT_REFUSED(sum(0, x, n));
    EXPECT_REFUSED(sum(0, x, at({3, 2}, F32)));
    EXPECT_REFUSED(sum(0, s8, s8));
    const auto select = [&](int32_t axis, const RawTensor& src, const RawTensor& dst) {
        run<kern::ArgMax>({axis}, src, dst, work(0));
        run<kern::ArgMin>({axis}, src, dst, work(0));
    };
    const RawTensor places = at({2, 1}, I32);
    select(1, x, places);
    EXPECT_REFUSED(select(2, x, places));
    EXPECT_REFUSED(select(-1, x, places));
    EXPECT_REFUSED(select(0, x, places));
    EXPECT_REFUSED(select(1, x, column));
    EXPECT_REFUSED(select(1, s8, places));
    EXPECT_REFUSED(select(0, at({MANY}, I8), at({1}, I32)));
}

TEST_P(Refusals, ArgsortAndTopK) {
    using Order = kern::Argsort::Order;
    const auto sort = [&](const RawTensor& src, const RawTensor& dst, const RawTensor& indices,
                          Order order = Order::ASCENDING) {
        run<kern::Argsort>({order}, src, dst, indices, work(0));
    };
    const RawTensor line = at({6}, F32);
    sort(x, x, n, Order::DESCENDING);
    EXPECT_REFUSED(sort(x, x, n, static_cast<Order>(2)));
    EXPECT_REFUSED(sort(n, n, n));
    EXPECT_REFUSED(sort(x, x, x));
    EXPECT_REFUSED(sort(x, x, at({3, 2}, I32)));
    EXPECT_REFUSED(sort(x, loose(F32), n));
    EXPECT_REFUSED(sort(line, line, at({6}, I32)));

    using Mode = kern::TopK::Mode;
    const RawTensor kth = at({2}, F32), places = at({2, 2}, I32), values = at({2, 2}, F32);
    const auto kth_of = [&](int32_t k, const Workspace& workspace) {
        run<kern::TopK>({Mode::KTH_VALUE}, k, x, kth, RawTensor(), workspace);
    };
    kth_of(-3, work(24));
    for (int32_t k : {0, 4, -4, INT32_MIN})
        EXPECT_REFUSED(kth_of(k, work()));
    EXPECT_REFUSED(kth_of(2, work(23)));
    const auto select = [&](int32_t k, const RawTensor& result, const RawTensor& indices,
                            Mode mode = Mode::ORDERED) {
        run<kern::TopK>({mode}, k, x, result, indices, work());
    };
    EXPECT_REFUSED(select(2, values, places, static_cast<Mode>(3)));
    EXPECT_REFUSED(select(1, values, places));
    EXPECT_REFUSED(select(2, values, values));
    EXPECT_REFUSED(select(2, places, places));
    EXPECT_REFUSED(select(2, values, places, Mode::KTH_VALUE));
    EXPECT_REFUSED(run<kern::TopK>({Mode::ORDERED}, 2, s8, at({2, 2}, S8), places, work()));
}

TEST_P(Refusals, Reduce) {
    using Type = kern::ReduceDataType;
    using Mode = kern::ReduceMode;
    const auto sum = [&](Type type, const RawTensor& src, const RawTensor& dst, int32_t axis = 1) {
        run<kern::Reduce>({Mode::SUM, axis, type}, src, dst, work());
    };
    const auto mean = [&](size_t workspace) {
        run<kern::Reduce>({Mode::MEAN, 1}, s8, at({2, 1}, S8), work(workspace));
    };
    const RawTensor numbers = at({2, 1}, I32);
    sum(Type::DEFAULT, x, column);
    mean(2048);
    EXPECT_REFUSED(mean(1535));
    EXPECT_REFUSED(sum(Type::FLOAT_IO16_CO32, x, column));
    EXPECT_REFUSED(sum(Type::DEFAULT, x, numbers));
    EXPECT_REFUSED(sum(Type::DEFAULT, at({2, 3}, DType::Byte()), at({2, 1}, DType::Byte())));
    EXPECT_REFUSED(sum(Type::FLOAT_O32, n, numbers));
    EXPECT_REFUSED(sum(Type::QUINT_I8_O32, x, column));
    EXPECT_REFUSED(run<kern::Reduce>({static_cast<Mode>(6), 1}, x, column, work()));
    EXPECT_REFUSED(sum(Type::DEFAULT, x, at({1, 3}, F32)));
    for (int32_t axis : {-1, 2})
        EXPECT_REFUSED(sum(Type::DEFAULT, x, x, axis));
    EXPECT_REFUSED(sum(Type::DEFAULT, at({0, 3}, F32), at({0, 1}, F32)));
}

TEST_P(Refusals, CondTakeRelayoutAndTypeCvt) {
    using Mode = kern::CondTakeMode;
    const auto take = [&](const RawTensor& data, const RawTensor& mask, float eps = 1,
                          size_t workspace = MEMORY, Mode mode = Mode::LESS) {
        run<kern::CondTake>(
            {mode, 1, eps}, data, mask, work(workspace),
            [&](DType dtype, const TensorShape& shape) { return at(shape, dtype); });
    };
    take(x, n, 1, 28);
    EXPECT_REFUSED(take(x, n, 1, 27));
    EXPECT_REFUSED(take(x, n, 0));
    EXPECT_REFUSED(take(x, n, NAN));
    EXPECT_REFUSED(take(x, n, 1, MEMORY, static_cast<Mode>(6)));
    EXPECT_REFUSED(take(x, at({3, 2}, I32)));
    EXPECT_REFUSED(take(x, s8));
    EXPECT_REFUSED(take(loose(F32), n));
    EXPECT_REFUSED(take(at({MANY}, I8), at({MANY}, I8)));

    const auto relayout = m_handle->create_operator<kern::Relayout>();
    relayout->exec({m_memory.data() + MEMORY / 2, x.layout}, loose(F32));
    EXPECT_REFUSED(relayout->exec(x, at({3, 3}, F32)));
    EXPECT_REFUSED(relayout->exec(x, at(strided({2, 3}, {0, 1}, F32))));
    EXPECT_REFUSED(relayout->exec(x, n));
    const auto convert = m_handle->create_operator<kern::TypeCvt>();
    convert->exec(loose(F32), at({2, 3}, I8));
    EXPECT_REFUSED(convert->exec(x, at({3, 2}, I8)));
    EXPECT_REFUSED(convert->exec(x, at({2, 3}, DType::Byte())));
}

TEST_P(Refusals, MatrixMul) {
    using Type = kern::MatrixMulDataType;
    const RawTensor f = at({4, 4}, F32);
    const auto multiply = [&](const RawTensor& a, const RawTensor& b, const RawTensor& c,
                              Type type = Type::DEFAULT) {
        run<kern::MatrixMul>({false, false, type}, a, b, c, work());
    };
    const auto rows = [&](size_t width, ptrdiff_t step) {
        return at(strided({4, width}, {step, 1}, F32));
    };
    const auto op = m_handle->create_operator<kern::MatrixMul>();
    const size_t bytes = op->workspace_in_bytes(f.layout, f.layout, f.layout);
    if (bytes > 0) {
        EXPECT_REFUSED(op->exec(f, f, f, work(bytes - 1)));
    }
    EXPECT_REFUSED(multiply(f, f, at({4, 5}, F32)));
    EXPECT_REFUSED(multiply(f, at({5, 4}, F32), f));
    EXPECT_REFUSED(multiply(at({1, 4, 4}, F32), f, f));
    EXPECT_REFUSED(multiply(at(strided({4, 4}, {1, 4}, F32)), f, f));
    EXPECT_REFUSED(multiply(rows(4, 3), f, f));
    EXPECT_REFUSED(multiply(f, rows(4, 3), f));
    EXPECT_REFUSED(multiply(f, f, rows(4, 3)));
    EXPECT_REFUSED(multiply(rows(4, -4), f, f));
    EXPECT_REFUSED(multiply(rows(LONG, 4), f, f));
    // Of all dtypes, only those of the kinds of products.
    const DType dtypes[] = {F32, F16, I8, U8, I16, I32, S8, S32, A8};
    for (uint32_t type = 0; type <= 5; ++type)
        for (DType in : dtypes)
            for (DType out : dtypes) {
                const auto data_type = static_cast<Type>(type);
                const RawTensor a = at({4, 4}, in), c = at({4, 4}, out);
                const auto is_this = [&](const Kind& item) {
                    return item.data_type == data_type && item.a.enum_value() == in.enum_value() &&
                           item.c.enum_value() == out.enum_value();
                };
                if (std::any_of(kinds().begin(), kinds().end(), is_this)) {
                    multiply(a, a, c, data_type);
                } else {
                    EXPECT_REFUSED(multiply(a, a, c, data_type)) << type;
                }
            }
    EXPECT_REFUSED(multiply(f, at({4, 4}, F16), f));
    EXPECT_REFUSED(multiply(at({4, 4}, I8), at({4, 4}, S8), at({4, 4}, I32), Type::INT8_TO_INT32));
}

// By the call itself: no task is made, so none runs.
TEST_P(Refusals, BatchedMatrixMul) {
    const TensorShape square{2, 4, 4};
    const RawTensor a = at(square, F32);
    const auto multiply = [&](const RawTensor& b, const RawTensor& c, size_t workspace = MEMORY) {
        run<kern::BatchedMatrixMul>({}, a, b, c, work(workspace));
    };
    multiply(a, a);
    const RawTensor flat = at({4, 4}, F32);
    EXPECT_REFUSED(run<kern::BatchedMatrixMul>({}, flat, flat, flat, work()));
    EXPECT_REFUSED(multiply(at({1, 4, 4}, F32), a));
    EXPECT_REFUSED(multiply(a, at({3, 4, 4}, F32)));
    EXPECT_REFUSED(multiply(at({2, 5, 4}, F32), a));
    EXPECT_REFUSED(multiply(a, at(square, I32)));
    EXPECT_REFUSED(kern::BatchedMatrixMul::deduce_shape({}, square, {3, 4, 4}));
    if (GetParam() != NAIVE) {
        EXPECT_REFUSED(multiply(a, a, 10));
    }
}

TEST_P(Refusals, Elementwise) {
    constexpr uint32_t ACOS = 2, ADD = 16, FLOOR_DIV = 17, MOD = 20, SHIFT = 32, FUSED = 36;
    const auto apply = [&](uint32_t mode, const std::vector<RawTensor>& inputs,
                           const RawTensor& output) {
        run<kern::Elementwise>({static_cast<kern::ElementwiseMode>(mode)}, inputs, output);
    };
    const RawTensor empty = at({0, 3}, F32), scalar = at({1}, F32);
    apply(ADD, {x, column}, x);
    apply(FUSED, {x, column, column, x}, x);
    EXPECT_REFUSED(apply(ADD, {x}, x));
    EXPECT_REFUSED(apply(ADD, {x, n}, x));
    EXPECT_REFUSED(apply(ADD, {x, x}, n));
    EXPECT_REFUSED(apply(ADD, {x, column}, column));
    EXPECT_REFUSED(apply(ADD, {scalar, x}, at({1, 3}, F32)));
    EXPECT_REFUSED(apply(ADD, {empty, empty}, empty));
    EXPECT_REFUSED(apply(ACOS, {n}, n));
    EXPECT_REFUSED(apply(SHIFT, {x, x}, x));
    EXPECT_REFUSED(apply(44, {x, x}, x));
    EXPECT_REFUSED(apply(FUSED, {x, column, x, x}, x));
    EXPECT_REFUSED(apply(FLOOR_DIV, {n, n}, n));
    EXPECT_REFUSED(apply(MOD, {n, n}, n));
    EXPECT_REFUSED(kern::Elementwise::deduce_output_shape({{2, 3}, {2}}));
}

TEST_P(Refusals, ElementwiseMultiType) {
    using Mode = kern::ElementwiseMultiType::Mode;
    constexpr auto SHIFT = Mode::SHIFT_TO_INT8, ADD = Mode::QUANTISED_ADD;
    const auto apply = [&](Mode mode, const std::vector<RawTensor>& inputs,
                           const RawTensor& output) {
        run<kern::ElementwiseMultiType>({mode}, inputs, output);
    };
    const RawTensor i8 = at({2, 3}, I8), i16 = at({2, 3}, I16), empty = at({0, 3}, I8);
    apply(SHIFT, {i16, i8}, i8);
    apply(ADD, {s8, s8}, s8);
    EXPECT_REFUSED(apply(SHIFT, {i16}, i8));
    EXPECT_REFUSED(apply(SHIFT, {at({2, 3}, U8), i8}, i8));
    EXPECT_REFUSED(apply(SHIFT, {i16, i8}, i16));
    EXPECT_REFUSED(apply(SHIFT, {i16, at({4}, I8)}, i8));
    EXPECT_REFUSED(apply(SHIFT, {empty, empty}, empty));
    EXPECT_REFUSED(apply(SHIFT, {i16, i8}, loose(I8)));
    EXPECT_REFUSED(apply(Mode::MUL_ADD_TO_INT32, {n, n, n}, n));
    EXPECT_REFUSED(apply(ADD, {s8, i8}, s8));
    EXPECT_REFUSED(apply(ADD, {s8, s8}, i8));
    EXPECT_REFUSED(apply(static_cast<Mode>(8), {i16, i8}, i8));
}

TEST(RefusalsOfAllLevels, LayoutsAndDTypes) {
    const ThrowingChecks checks;
    const auto dense = [](const TensorShape& shape) { return TensorLayout(shape, F32); };
    const TensorLayout cube = dense({2, 3, 4}), turned = strided({3, 2}, {1, 3}, F32);
    EXPECT_REFUSED(dense({3, 2}).broadcast_to({3, 4}));
    EXPECT_REFUSED(dense({3, 2}).broadcast_to({2}));
    EXPECT_REFUSED(dense({1, 2}).broadcast_to({0, 2}));
    EXPECT_REFUSED(dense({2, 3}).reshape({4}));
    EXPECT_REFUSED(turned.reshape({6}));
    EXPECT_REFUSED(cube.permuted({0, 1}));
    EXPECT_REFUSED(cube.permuted({0, 1, 3}));
    EXPECT_REFUSED(cube.remove_axis(3));
    EXPECT_REFUSED(dense({3}).remove_axis(0));
    EXPECT_REFUSED(TensorShape({1, 1, 1, 1, 1, 1, 1, 1}));
    EXPECT_REFUSED(dense({1, 1, 1, 1, 1, 1, 1}).insert_axis_inplace(0, 1, 1));
    EXPECT_REFUSED(dense({2}).insert_axis_inplace(0, 0, 1));
    EXPECT_REFUSED(dense({2}).insert_axis_inplace(2, 1, 1));
    EXPECT_REFUSED(cube.same_layout(TensorLayout(cube, I32)));
    dense({LONG});
    EXPECT_REFUSED(dense({1, LONG + 1}));
    EXPECT_REFUSED(TensorShape({LONG, 3}).element_count());
    EXPECT_REFUSED(dense({3, LONG}));
    EXPECT_REFUSED(strided({LONG, 3}, {0, 0}, F32).collapsed());
    EXPECT_REFUSED(dense({LONG}).span());
    EXPECT_REFUSED(strided({LONG, LONG, 4}, {1, 1, 1}, I8).span());
    EXPECT_REFUSED(strided({2, 3}, {1, LONG}, I8).is_abs_monotonic_allow_broadcast());
    // Products of strides and lengths, in bytes, of negative strides, and as sums.
    constexpr ptrdiff_t HALF = PTRDIFF_MAX / 2;
    strided({3}, {-HALF / 2}, I8).span();
    EXPECT_REFUSED(strided({3}, {HALF}, F32).span());
    EXPECT_REFUSED(strided({3}, {-HALF / 2}, F32).span());
    EXPECT_REFUSED(strided({4}, {HALF}, I8).span());
    EXPECT_REFUSED(strided({3, 3}, {-HALF, -HALF}, I8).span());
    EXPECT_REFUSED(strided({2, 4}, {1, HALF}, F32).collapsed());
    EXPECT_REFUSED(strided({4, 4}, {HALF, HALF - 1}, F32).is_non_overlapping());
    EXPECT_REFUSED(TensorLayout({2, 3}, F32).remove_axis(2));
    EXPECT_REFUSED(I16.byte_size(SIZE_MAX / 2 + 1));
    EXPECT_REFUSED(DType::IntB1().byte_size(SIZE_MAX - 6));
    EXPECT_REFUSED(strided({2}, {-1}, DType::IntB4()).span());
    EXPECT_REFUSED(DType::QuantizedS8(NAN));
    EXPECT_REFUSED(S8.param<kern::QuantizedS32Param>());
    EXPECT_REFUSED(DType().param<kern::QuantizedS32Param>());
    EXPECT_REFUSED(DType::IntB1().size_log2());
    EXPECT_REFUSED(DType::from_enum(10));
    EXPECT_REFUSED(DType::from_enum(100000));
}

TEST(RefusalsOfAllLevels, FormatsAndHandles) {
    const ThrowingChecks checks;
    const auto naive = make_handle(NAIVE), fallback = make_handle(FALLBACK);
    const auto image = [](const TensorShape& shape, DType dtype) {
        return TensorLayout(shape, dtype, image_pack4_format(1, 64));
    };
    const auto with_strides = [&](const std::vector<ptrdiff_t>& strides, DType dtype) {
        TensorLayout layout = strided({2, 8}, strides, dtype);
        layout.format = image_pack4_format(1, 64);
        return layout;
    };
    const auto read = [&](const std::string& bytes, const kern::KernelHandle& handle) {
        kern::deserialize_format(bytes, &handle);
    };
    const std::string plain = kern::default_format()->serialize(),
                      stored = image_pack4_format(1, 1)->serialize();
    alignas(64) uint8_t memory[512];
    EXPECT_REFUSED(image_pack4_format(0, 1));
    EXPECT_REFUSED(image_pack4_format(1, 0));
    EXPECT_REFUSED(image_pack4_format(1, 24));
    EXPECT_REFUSED(image({4}, F32));
    EXPECT_REFUSED(image({2, 6}, F32));
    EXPECT_REFUSED(image({0, 4}, F32));
    EXPECT_REFUSED(image({2, 8}, DType::IntB4()));
    EXPECT_REFUSED(with_strides({8, 1}, DType::IntB4()).is_dense());
    EXPECT_REFUSED(with_strides({-16, 1}, F32).span());
    EXPECT_REFUSED(with_strides({12, 1}, F32).collapsed());
    EXPECT_REFUSED(kern::set_naive_image_pitch_alignment(3));
    EXPECT_REFUSED(image_pack4_format(256, 1)->serialize());
    EXPECT_REFUSED(read(plain + "x", *naive));
    EXPECT_REFUSED(read(std::string("\x02\0\0\0", 4), *naive));
    EXPECT_REFUSED(read(stored + "x", *naive));
    EXPECT_REFUSED(read(stored.substr(0, 4), *naive));
    EXPECT_REFUSED(read(stored.substr(0, 3), *naive));
    EXPECT_REFUSED(read(std::string("\1\0\0\0\0", 5), *naive));
    EXPECT_REFUSED(read(stored, *fallback));
    EXPECT_REFUSED(fallback->image_pitch_alignment());
    EXPECT_REFUSED(kern::make_handle(inline_computing(), 3));
    for (int32_t number : {2, 3, 5, static_cast<int32_t>(kern::HandleLevel::ARM64)})
        EXPECT_REFUSED(make_handle(static_cast<kern::HandleLevel>(number)));
    naive->set_destructor([] {});
    EXPECT_REFUSED(naive->set_destructor([] {}));
    EXPECT_REFUSED(kern::WorkspaceBundle(memory, {1, 64}, 64).get(2));
}

TEST(RefusedViews, AreReportedApart) {
    const ThrowingChecks checks;
    const TensorLayout layout({2, 3}, F32);
    const auto kind = [](auto&& call) {
        try {
            call();
        } catch (const Refused& refused) {
            return refused.is_reshape ? "reshape" : "error";
        }
        return "none";
    };
    EXPECT_STREQ(kind([&] { layout.broadcast_to({2, 4}); }), "reshape");
    EXPECT_STREQ(kind([&] { layout.reshape({5}); }), "reshape");
    EXPECT_STREQ(kind([&] { layout.permuted({1, 0}).reshape({6}); }), "reshape");
    EXPECT_STREQ(kind([&] { layout.permuted({0}); }), "error");
    EXPECT_STREQ(kind([&] { layout.reshape({3, 2}); }), "none");
}

// One thing of a convolution changed in each row.
TEST_P(Refusals, Convolutions) {
    struct Row {
        std::function<void(kern::ConvolutionParam&, RawTensor&, RawTensor&, RawTensor&)> change;
        bool is_fine = false;
    };
    using P = kern::ConvolutionParam;
    using T = RawTensor;
    const Row rows[] = {
        {[](P&, T&, T&, T&) {}, true},
        {[](P& p, T&, T&, T&) { p.mode = kern::ConvolutionMode{2}; }},
        {[](P& p, T&, T&, T&) { p.sparse = kern::ConvolutionSparse{2}; }},
        {[](P& p, T&, T&, T&) { p.sparse = kern::ConvolutionSparse::GROUP; }},
        {[](P& p, T&, T&, T&) { p.format = kern::ConvolutionFormat{1}; }},
        {[](P& p, T&, T&, T&) { p.data_type = kern::MatrixMulDataType::INT8_TO_INT16; }},
        {[](P& p, T&, T&, T&) { p.stride_h = 0; }},
        {[](P& p, T&, T&, T&) { p.dilate_w = 0; }},
        {[](P& p, T&, T&, T&) { p.dilate_h = 3; }},  // the filter is larger than the image
        {[](P& p, T&, T&, T&) { p.pad_w = 1; }},
        {[&](P&, T& src, T&, T&) {
            src = at({2, 3, 5, 5}, F32);
        }},
        {[&](P&, T& src, T&, T&) {
            src = at({2, 2, 5, 5}, F16);
        }},
        {[&](P&, T& src, T&, T&) {
            src = at(strided({2, 2, 5, 5}, {60, 30, 6, 1}, F32));
        }},
        {[&](P&, T&, T& filter, T&) {
            filter = at({1, 3, 2, 3, 3}, F32);
        }},
        {[&](P&, T&, T& filter, T&) {
            filter = at({3, 2, 3, 3}, F16);
        }},
        {[&](P&, T&, T&, T& dst) {
            dst = at({1, 3, 3, 3}, F32);
        }},
        {[&](P&, T&, T&, T& dst) {
            dst = at({2, 3, 3, 3}, I32);
        }},
        {[&](P&, T&, T&, T& dst) {
            dst = at({2, 3, 9}, F32);
        }},
        {[](P&, T&, T&, T& dst) { dst.layout.dtype = DType(); }},
    };
    for (const Row& row : rows) {
        P param;
        RawTensor src = at({2, 2, 5, 5}, F32), filter = at({3, 2, 3, 3}, F32);
        RawTensor dst = at({2, 3, 3, 3}, F32);
        const RawTensor bias = at({1, 3, 1, 1}, F32), mask = at({3, 3}, I32);
        row.change(param, src, filter, dst);
        const std::function<void()> calls[] = {
            [&] { run<kern::ConvolutionForward>(param, src, filter, dst, work()); },
            [&] { run<kern::ConvolutionBackwardData>(param, src, filter, dst, work()); },
            [&] { run<kern::ConvolutionBackwardFilter>(param, src, filter, dst, work()); },
            [&] {
                run<kern::ConvBiasForward>({param, {}}, src, filter, bias, dst, work());
            },
            [&] { run<kern::MaskConvForward>(param, src, filter, mask, dst, work()); },
        };
        for (const auto& call : calls) {
            SCOPED_TRACE(std::to_string(&row - rows) + " " + std::to_string(&call - calls));
            if (row.is_fine)
                call();
            else
                EXPECT_REFUSED(call());
        }
    }
}

TEST_P(Refusals, BiasesMasksAndWorkspaces) {
    const RawTensor src = at({2, 2, 5, 5}, F32), filter = at({3, 2, 3, 3}, F32);
    const RawTensor dst = at({2, 3, 3, 3}, F32), bias = at({1, 3, 1, 1}, F32);
    const auto add = [&](uint32_t nonlinearity, const RawTensor& operand) {
        run<kern::ConvBiasForward>({{}, kern::Nonlinearity{nonlinearity}}, src, filter, operand,
                                   dst, work());
    };
    add(5, bias);
    EXPECT_REFUSED(add(6, bias));
    EXPECT_REFUSED(add(0, at({1, 2, 1, 1}, F32)));
    EXPECT_REFUSED(add(0, at({3}, F32)));
    EXPECT_REFUSED(add(0, at({1, 3, 1, 1}, F16)));
    const auto add_integers = [&](uint32_t nonlinearity, MatrixMulDataType data_type, DType sum) {
        kern::ConvBiasParam param;
        param.data_type = data_type;
        param.nonlinearity = kern::Nonlinearity{nonlinearity};
        const DType in = sum == S32 ? S8 : I8;
        run<kern::ConvBiasForward>(param, at({2, 2, 5, 5}, in), at({3, 2, 3, 3}, in),
                                   at({1, 3, 1, 1}, sum), at({2, 3, 3, 3}, sum), work());
    };
    add_integers(1, MatrixMulDataType::INT8_TO_INT32, I32);
    EXPECT_REFUSED(add_integers(2, MatrixMulDataType::INT8_TO_INT32, I32));
    EXPECT_REFUSED(add_integers(0, MatrixMulDataType::INT8_TO_INT32, S32));

    const auto mask_out = [&](const RawTensor& mask) {
        run<kern::MaskConvForward>({}, src, filter, mask, dst, work());
    };
    mask_out(at({3, 3}, U8));
    EXPECT_REFUSED(mask_out(at({3, 3}, A8)));
    EXPECT_REFUSED(mask_out(at({1, 1, 3, 3}, U8)));
    EXPECT_REFUSED(mask_out(at({5, 5}, U8)));
    kern::MaskPropagateParam param;
    param.kernel_h = param.kernel_w = 3;
    const auto propagate = [&](const RawTensor& from, const RawTensor& to) {
        run<kern::MaskPropagate>(param, from, to, work(0));
    };
    propagate(at({5, 5}, I32), at({3, 3}, I32));
    EXPECT_REFUSED(propagate(at({5, 5}, I32), at({3, 3}, U8)));
    EXPECT_REFUSED(propagate(at({5, 5}, S8), at({3, 3}, S8)));
    EXPECT_REFUSED(propagate(at({5, 5}, I32), at({5, 5}, I32)));
    EXPECT_REFUSED(propagate(at({1, 5, 5}, I32), at({3, 3}, I32)));
    param.kernel_w = 0;
    EXPECT_REFUSED(propagate(at({5, 5}, I32), at({3, 3}, I32)));

    const auto op = m_handle->create_operator<kern::ConvolutionBackwardData>();
    const size_t bytes = op->workspace_in_bytes(src.layout, filter.layout, dst.layout);
    op->exec(src, filter, dst, work(bytes));
    if (bytes != 0) {
        EXPECT_REFUSED(op->exec(src, filter, dst, work(bytes - 1)));
    }
    kern::ConvolutionParam far;
    far.pad_w = 3;
    far.stride_w = UINT32_MAX;
    if (sizeof(size_t) > sizeof(uint32_t)) {
        EXPECT_EQ(kern::convolved_shape(far, src.layout, filter.layout)[3], 1u);
    } else {  // a step that no signed place can take
        EXPECT_REFUSED(kern::convolved_shape(far, src.layout, filter.layout));
    }
    EXPECT_REFUSED(kern::ConvolutionBackwardData::deduce_shape({}, filter.layout, {2, 3, 0, 3}));
    EXPECT_REFUSED(kern::ConvolutionBackwardData::deduce_shape({}, filter.layout, {2, 2, 3, 3}));
}

}  // namespace
}  // namespace kern_test
