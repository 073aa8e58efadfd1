// The vector forms of Elementwise, row by row of their table: which form a call takes, and that it
// gives what the naive level does.
#include <cmath>
#include <limits>

#include "kernels/arm_common/elementwise_plan.h"
#include "kernels/image_format.h"
#include "tests/kernels/elementwise_reference.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::ElementwiseMode;
using kern::ModeTrait;
using kern::arm_common::VectorForm;

struct VectorMode {
    ElementwiseMode mode;
    unsigned types;
};

std::vector<VectorMode> vector_modes() {
    using namespace kern::arm_common;
    return {
#define KERN_VECTOR_MODE(NAME, types, ...) {ElementwiseMode::NAME, types},
#include "kernels/arm_common/elementwise_vector_modes.inc"
#undef KERN_VECTOR_MODE
    };
}

VectorForm form_of(ElementwiseMode mode, const std::vector<RawTensor>& inputs,
                   const TensorLayout& output) {
    const kern::BroadcastSet set(inputs, output);
    return kern::arm_common::plan_vector_form(mode, output.dtype.enum_value(), set).form;
}

void run(kern::HandleLevel level, ElementwiseMode mode, const std::vector<RawTensor>& inputs,
         const RawTensor& output) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<kern::Elementwise>();
    op->param().mode = mode;
    op->exec(inputs, output);
}

// Integers of the whole range; floats with what is special among them, but no denormals, which the
// vectors of Arm flush.
void fill_with_extremes(const Tensor& tensor, std::mt19937& random) {
    const double special[] = {NAN, INFINITY, -INFINITY, 0.0, -0.0, 1.0, -1.0, 1e30, -1e30};
    for (size_t i = 0; i < tensor.layout().element_count(); ++i) {
        double value = static_cast<double>(static_cast<int32_t>(random()));
        if (tensor.layout().dtype == DType::Float32())
            value = random() % 4 == 0 ? special[random() % 9] : value / 0x1p24;
        else if (random() % 8 == 0)
            value = -0x1p31;  // the smallest value; of narrow types its low bits are 0
        else if (random() % 8 == 0)
            value = static_cast<double>(random() % 2 == 0 ? INT32_MAX : -32768 - 128);
        tensor.set(i, value);
    }
}

bool is_approximate(ElementwiseMode mode) {
    return mode == ElementwiseMode::EXP || mode == ElementwiseMode::SIGMOID ||
           mode == ElementwiseMode::TANH || mode == ElementwiseMode::RATIONAL_TANH;
}

// The same bits, where every NaN is one; within some parts in 10^5 of the approximate modes.
void expect_same(ElementwiseMode mode, const Tensor& wanted, const Tensor& got) {
    for (size_t i = 0; i < wanted.layout().element_count(); ++i) {
        const double w = wanted.get(i), g = got.get(i);
        const bool same = w == g && std::signbit(w) == std::signbit(g);
        const bool near = is_approximate(mode) && std::fabs(w - g) <= 3e-5 * (1 + std::fabs(w));
        ASSERT_TRUE(same || near || (std::isnan(w) && std::isnan(g)))
            << ModeTrait::of(mode).name << " " << wanted.layout().dtype.name() << " "
            << wanted.layout().to_string() << " at " << i << ": " << g << " instead of " << w;
    }
}

struct Call {
    TensorShape output;
    std::vector<TensorShape> inputs;
    VectorForm form;
    bool commutable_only = false;  // other modes have no vector form then
};

std::vector<Call> calls(uint32_t arity, size_t n) {
    if (arity == 1)
        return {{{n}, {{n}}, VectorForm::UNARY}, {{2, n}, {{2, n}}, VectorForm::UNARY}};
    if (arity == 3) {
        return {{{3, n}, {{3, n}, {3, n}, {3, n}}, VectorForm::MUL_ADD},
                {{3, n}, {{1}, {3, n}, {3, n}}, VectorForm::MUL_ADD},
                {{3, n}, {{3, n}, {1, 1}, {3, n}}, VectorForm::MUL_ADD},
                {{3, n}, {{1}, {1}, {3, n}}, VectorForm::MUL_ADD},
                {{3, n}, {{3, n}, {3, 1}, {3, n}}, VectorForm::NONE},
                {{3, n}, {{3, n}, {3, n}, {1}}, VectorForm::NONE}};
    }
    return {{{n}, {{n}, {n}}, VectorForm::DENSE_DENSE},
            {{3, n}, {{3, n}, {1}}, VectorForm::DENSE_SCALAR},
            {{3, n}, {{1, 1}, {3, n}}, VectorForm::SCALAR_DENSE, true},
            {{3, n}, {{3, n}, {3, 1}}, VectorForm::DENSE_CHANNEL},
            {{3, n}, {{3, 1}, {3, n}}, VectorForm::CHANNEL_DENSE, true},
            {{2, 3, n}, {{2, 3, n}, {3, 1}}, VectorForm::DENSE_CHANNEL},
            {{2, 3, n}, {{1, 3, 1}, {2, 3, n}}, VectorForm::CHANNEL_DENSE, true},
            {{2, 3, n}, {{2, 1, 1}, {2, 3, n}}, VectorForm::CHANNEL_DENSE, true},
            {{3, n}, {{3, n}, {n}}, VectorForm::DENSE_ROW},
            {{3, n}, {{1, n}, {3, n}}, VectorForm::ROW_DENSE},
            {{2, 3, n}, {{2, 3, n}, {2, 1, n}}, VectorForm::NONE},
            {{3, n}, {{3, 1}, {1, n}}, VectorForm::NONE}};
}

void check_call(ElementwiseMode mode, DType dtype, const Call& call, std::mt19937& random) {
    std::vector<std::unique_ptr<Tensor>> tensors;
    std::vector<RawTensor> inputs;
    for (const TensorShape& shape : call.inputs) {
        tensors.push_back(std::make_unique<Tensor>(shape, dtype));
        inputs.push_back(tensors.back()->raw());
        if (is_approximate(mode))
            tensors.back()->fill_uniform(random, -5, 5);
        else
            fill_with_extremes(*tensors.back(), random);
    }
    const Tensor wanted(call.output, dtype), got(call.output, dtype);
    const bool left_out = call.commutable_only && !ModeTrait::of(mode).commutable;
    ASSERT_EQ(form_of(mode, inputs, got.layout()), left_out ? VectorForm::NONE : call.form)
        << ModeTrait::of(mode).name << " " << call.output.to_string();
    run(NAIVE, mode, inputs, wanted.raw());
    run(ARMV7, mode, inputs, got.raw());
    expect_same(mode, wanted, got);
    for (size_t i = 0; i < inputs.size(); ++i) {
        if (testing::Test::HasFatalFailure() || !inputs[i].layout.same_shape(call.output))
            continue;
        const std::string saved = tensors[i]->bytes();
        run(ARMV7, mode, inputs, inputs[i]);
        expect_same(mode, wanted, *tensors[i]);
        std::memcpy(inputs[i].raw_ptr, saved.data(), saved.size());
    }
}

class ElementwiseVectors : public testing::TestWithParam<VectorMode> {};

TEST_P(ElementwiseVectors, EveryFormAndSizeGivesWhatTheNaiveLevelDoes) {
    const ElementwiseMode mode = GetParam().mode;
    std::mt19937 random(static_cast<uint32_t>(mode));
    for (DType dtype : number_types()) {
        if ((GetParam().types & kern::arm_common::vector_type(dtype.enum_value())) == 0)
            continue;
        for (size_t n : Sizes{2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33}) {
            for (const Call& call : calls(ModeTrait::of(mode).arity, n)) {
                check_call(mode, dtype, call, random);
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, ElementwiseVectors, testing::ValuesIn(vector_modes()),
                         [](const testing::TestParamInfo<VectorMode>& row) {
                             return ModeTrait::of(row.param.mode).name;
                         });

// The rows of the table, said a second time.
TEST(ElementwisePlan, ModesAndTypesWithVectorForms) {
    const std::set<uint32_t> of_numbers = {0, 1, 16, 18, 19, 21, 24, 37};
    const std::set<uint32_t> of_floats = {6, 12, 14, 27, 40}, of_integers = {43};
    for (uint32_t mode = 0; mode < 44; ++mode) {
        for (DType dtype : number_types()) {
            const bool is_float = dtype == DType::Float32();
            const bool is_int =
                dtype == DType::Int32() || dtype == DType::Int16() || dtype == DType::Int8();
            const bool fused = mode == 35 && (is_float || dtype == DType::Int32());
            const bool wanted = fused || (of_numbers.count(mode) && (is_float || is_int)) ||
                                (of_floats.count(mode) && is_float) ||
                                (of_integers.count(mode) && is_int);
            const TensorLayout layout({8}, dtype);
            const std::vector<RawTensor> inputs(
                ModeTrait::of(static_cast<ElementwiseMode>(mode)).arity, {nullptr, layout});
            EXPECT_EQ(
                form_of(static_cast<ElementwiseMode>(mode), inputs, layout) != VectorForm::NONE,
                wanted)
                << mode << " " << dtype.name();
        }
    }
}

// Of all forms alone the exponential has other bits than the naive level's, on every machine: where
// they differ, it is the planned kernel that has run.
TEST(ElementwisePlan, ThePlannedKernelRuns) {
    std::mt19937 random(1);
    Tensor x({1000}, DType::Float32());
    const Tensor wanted(x.layout()), fallback(x.layout()), got(x.layout());
    x.fill_uniform(random, -5, 5);
    run(NAIVE, ElementwiseMode::EXP, {x.raw()}, wanted.raw());
    run(FALLBACK, ElementwiseMode::EXP, {x.raw()}, fallback.raw());
    run(ARMV7, ElementwiseMode::EXP, {x.raw()}, got.raw());
    EXPECT_EQ(fallback.bytes(), wanted.bytes());
    EXPECT_NE(got.bytes(), wanted.bytes());
}

TEST(ElementwisePlan, StridedInputsHaveNoVectorForm) {
    const DType f = DType::Float32();
    const TensorLayout matrix({3, 4}, f);
    const RawTensor dense(nullptr, matrix);
    EXPECT_EQ(form_of(ElementwiseMode::ABS, {{nullptr, strided({3, 4}, {1, 3}, f)}}, matrix),
              VectorForm::NONE);
    for (const TensorLayout& other : {strided({3, 4}, {1, 3}, f), strided({3, 4}, {5, 1}, f),
                                      strided({3, 1}, {2, 1}, f), strided({1, 4}, {1, 2}, f)}) {
        EXPECT_EQ(form_of(ElementwiseMode::SUB, {dense, {nullptr, other}}, matrix),
                  VectorForm::NONE)
            << other.to_string();
    }
    // One element is dense whatever its stride.
    EXPECT_EQ(form_of(ElementwiseMode::SUB,
                      {{nullptr, strided({1}, {7}, f)}, {nullptr, TensorLayout({1}, f)}},
                      TensorLayout({1}, f)),
              VectorForm::DENSE_DENSE);
}

// Images of pixels with four elements, whose rows have no padding: a pixel against all of them.
TEST(ElementwisePlan, PixelsOfAnImage) {
    std::mt19937 random(1);
    const kern::TensorFormat* format = kern::image_pack4_format(2, 4);
    for (DType dtype : {DType::Float32(), DType::Int32(), DType::Int16(), DType::Int8()}) {
        const TensorLayout layout({2, 3, 5, 4}, dtype, format);
        const Tensor image(layout), pixel(TensorLayout({1, 1, 1, 4}, dtype, format)),
            column(TensorLayout({1, 3, 1, 4}, dtype, format)), wanted(layout), got(layout);
        fill_with_extremes(image, random);
        fill_with_extremes(pixel, random);
        fill_with_extremes(column, random);
        const auto check = [&](ElementwiseMode mode, const Tensor& x, const Tensor& y,
                               VectorForm form) {
            const std::vector<RawTensor> inputs = {x.raw(), y.raw()};
            EXPECT_EQ(form_of(mode, inputs, layout), form);
            run(NAIVE, mode, inputs, wanted.raw());
            run(ARMV7, mode, inputs, got.raw());
            expect_same(mode, wanted, got);
        };
        check(ElementwiseMode::SUB, image, pixel, VectorForm::DENSE_CHANNEL);
        check(ElementwiseMode::MAX, pixel, image, VectorForm::CHANNEL_DENSE);
        check(ElementwiseMode::SUB, pixel, image, VectorForm::NONE);
        check(ElementwiseMode::SUB, image, column, VectorForm::NONE);
        check(ElementwiseMode::SUB, image, image, VectorForm::DENSE_DENSE);
    }
    const Tensor padded(TensorLayout({2, 3, 4}, DType::Float32(), kern::image_pack4_format(2, 64)));
    EXPECT_DEATH(run(ARMV7, ElementwiseMode::ABS, {padded.raw()}, padded.raw()), "");
}

}  // namespace
}  // namespace kern_test
