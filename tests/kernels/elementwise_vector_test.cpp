// Which vector form a call of Elementwise takes; that the forms give what naive does is tested with
// all levels.
#include <set>

#include "kernels/arm_common/elementwise_plan.h"
#include "kernels/types/image_format.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::ElementwiseMode;
using kern::ModeTrait;
using kern::arm_common::VectorForm;

VectorForm form_of(ElementwiseMode mode, const std::vector<TensorLayout>& layouts,
                   const TensorLayout& output) {
    std::vector<RawTensor> inputs;
    for (const TensorLayout& layout : layouts)
        inputs.push_back({nullptr, layout});
    const kern::BroadcastSet set(inputs, output);
    return kern::arm_common::plan_vector_form(mode, output.dtype.enum_value(), set).form;
}

// The rows of the kernels' table, said a second time.
TEST(ElementwisePlan, ModesAndTypesWithVectorForms) {
    const std::set<uint32_t> of_numbers = {0, 1, 16, 18, 19, 21, 24, 37};
    const std::set<uint32_t> of_floats = {6, 12, 14, 27, 40}, of_integers = {43};
    for (uint32_t number = 0; number < 44; ++number) {
        const auto mode = static_cast<ElementwiseMode>(number);
        for (DType dtype : number_types()) {
            const bool is_float = dtype == DType::Float32();
            const bool is_int =
                dtype == DType::Int32() || dtype == DType::Int16() || dtype == DType::Int8();
            const bool fused = number == 35 && (is_float || dtype == DType::Int32());
            const bool wanted = fused || (of_numbers.count(number) && (is_float || is_int)) ||
                                (of_floats.count(number) && is_float) ||
                                (of_integers.count(number) && is_int);
            const TensorLayout layout({8}, dtype);
            const std::vector<TensorLayout> inputs(ModeTrait::of(mode).arity, layout);
            EXPECT_EQ(form_of(mode, inputs, layout) != VectorForm::NONE, wanted)
                << number << " " << dtype.name();
        }
    }
}

TEST(ElementwisePlan, FormsOfBroadcasts) {
    const DType f = DType::Float32();
    const auto dense = [f](const TensorShape& shape) { return TensorLayout(shape, f); };
    const TensorLayout matrix = dense({3, 8}), image = dense({2, 3, 8});
    const auto pixels = [f](const TensorShape& shape) {
        return TensorLayout(shape, f, kern::image_pack4_format(2, 4));
    };
    const TensorLayout picture = pixels({2, 3, 5, 4}), pixel = pixels({1, 1, 1, 4});
    constexpr auto SUB = ElementwiseMode::SUB, MAX = ElementwiseMode::MAX,
                   ABS = ElementwiseMode::ABS, FUSED = ElementwiseMode::FUSE_MUL_ADD3;
    const struct {
        ElementwiseMode mode;
        std::vector<TensorLayout> inputs;
        VectorForm form;
    } cases[] = {
        {ABS, {matrix}, VectorForm::UNARY},
        {ABS, {strided({3, 8}, {1, 3}, f)}, VectorForm::NONE},
        {SUB, {matrix, matrix}, VectorForm::DENSE_DENSE},
        {SUB, {matrix, dense({1})}, VectorForm::DENSE_SCALAR},
        {MAX, {dense({1, 1}), matrix}, VectorForm::SCALAR_DENSE},
        {SUB, {matrix, dense({3, 1})}, VectorForm::DENSE_CHANNEL},
        {MAX, {dense({3, 1}), matrix}, VectorForm::CHANNEL_DENSE},
        {SUB, {image, dense({3, 1})}, VectorForm::DENSE_CHANNEL},
        {MAX, {dense({1, 3, 1}), image}, VectorForm::CHANNEL_DENSE},
        {MAX, {dense({2, 1, 1}), image}, VectorForm::CHANNEL_DENSE},
        {SUB, {matrix, dense({8})}, VectorForm::DENSE_ROW},
        {SUB, {dense({1, 8}), matrix}, VectorForm::ROW_DENSE},
        // Of an operand on the left, only modes whose operands may be exchanged.
        {SUB, {dense({1, 1}), matrix}, VectorForm::NONE},
        {SUB, {dense({3, 1}), matrix}, VectorForm::NONE},
        {SUB, {image, dense({2, 1, 8})}, VectorForm::NONE},
        {SUB, {dense({3, 1}), dense({1, 8})}, VectorForm::NONE},
        {SUB, {matrix, strided({3, 8}, {1, 3}, f)}, VectorForm::NONE},
        {SUB, {matrix, strided({3, 8}, {9, 1}, f)}, VectorForm::NONE},
        {SUB, {matrix, strided({3, 1}, {2, 1}, f)}, VectorForm::NONE},
        {SUB, {matrix, strided({1, 8}, {1, 2}, f)}, VectorForm::NONE},
        // One element is dense whatever its stride.
        {SUB, {strided({1}, {7}, f), dense({1})}, VectorForm::DENSE_DENSE},
        {FUSED, {matrix, matrix, matrix}, VectorForm::MUL_ADD},
        {FUSED, {dense({1}), matrix, matrix}, VectorForm::MUL_ADD},
        {FUSED, {matrix, dense({1, 1}), matrix}, VectorForm::MUL_ADD},
        {FUSED, {dense({1}), dense({1}), matrix}, VectorForm::MUL_ADD},
        {FUSED, {matrix, dense({3, 1}), matrix}, VectorForm::NONE},
        {FUSED, {matrix, matrix, dense({1})}, VectorForm::NONE},
        {SUB, {picture, pixel}, VectorForm::DENSE_CHANNEL},
        {MAX, {pixel, picture}, VectorForm::CHANNEL_DENSE},
        {SUB, {pixel, picture}, VectorForm::NONE},
        {SUB, {picture, pixels({1, 3, 1, 4})}, VectorForm::NONE},
        {SUB, {picture, picture}, VectorForm::DENSE_DENSE},
    };
    for (const auto& item : cases) {
        std::vector<TensorShape> shapes(item.inputs.begin(), item.inputs.end());
        const TensorLayout output(kern::Elementwise::deduce_output_shape(shapes), f,
                                  item.inputs[0].format);
        EXPECT_EQ(form_of(item.mode, item.inputs, output), item.form) << &item - cases;
    }
}

}  // namespace
}  // namespace kern_test
