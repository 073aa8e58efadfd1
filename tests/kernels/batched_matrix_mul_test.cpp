#include "kernels/batched_matrix_mul.h"

#include "tests/kernels/dispatchers.h"
#include "tests/kernels/matrix_mul_test_util.h"

namespace kern_test {
namespace {

// `gap` elements between the batches; a negative one puts all batches in one place.
TensorLayout batched(size_t count, const TensorLayout& matrix, ptrdiff_t gap) {
    TensorLayout layout = matrix;
    const auto matrix_span = static_cast<ptrdiff_t>(matrix[0]) * matrix.stride[0];
    layout.ndim = 3;
    for (size_t axis = 2; axis > 0; --axis) {
        layout[axis] = matrix[axis - 1];
        layout.stride[axis] = matrix.stride[axis - 1];
    }
    layout[0] = count;
    layout.stride[0] = gap < 0 ? 0 : matrix_span + gap;
    return layout;
}

RawTensor matrix_of(const RawTensor& batches, size_t batch) {
    const auto bytes = static_cast<ptrdiff_t>(batches.layout.dtype.element_bytes());
    return {
        batches.ptr<uint8_t>() + static_cast<ptrdiff_t>(batch) * batches.layout.stride[0] * bytes,
        batches.layout.remove_axis(0)};
}

TEST(BatchedMatrixMul, IsTheProductOfEachBatch) {
    const struct {
        DType in, out;
        MatrixMulDataType data_type;
    } kinds[] = {{DType::Float32(), DType::Float32(), MatrixMulDataType::DEFAULT},
                 {DType::Int8(), DType::Int16(), MatrixMulDataType::INT8_TO_INT16},
                 {DType::Int8(), DType::Int32(), MatrixMulDataType::INT8_TO_INT32}};
    std::mt19937 random(21);
    for (const auto& kind : kinds) {
        for (int flags = 0; flags < 4; ++flags) {
            for (size_t count : Sizes{0, 1, 3}) {
                const Problem problem{5, 9, 17, (flags & 1) != 0, (flags & 2) != 0, 2};
                Tensor a(batched(count, problem.a(kind.in), 4)),
                    b(batched(count, problem.b(kind.in), -1));
                a.fill_integers(random, -100, 100);
                b.fill_integers(random, -100, 100);
                const Tensor wanted(batched(count, problem.c(kind.out), 7));
                const auto naive = make_handle(NAIVE);
                const auto single = naive->create_operator<kern::MatrixMul>();
                single->param() = {problem.transpose_a, problem.transpose_b, kind.data_type};
                for (size_t n = 0; n < count; ++n)
                    single->exec(matrix_of(a.raw(), n), matrix_of(b.raw(), n),
                                 matrix_of(wanted.raw(), n), {});
                EXPECT_TRUE(
                    kern::BatchedMatrixMul::deduce_shape(single->param(), a.layout(), b.layout())
                        .same_shape(wanted.layout()));
                const auto inner = kern::inplace_handle()->create_operator<kern::MatrixMul>();
                inner->param() = single->param();
                const size_t inner_bytes = inner->workspace_in_bytes(
                    problem.a(kind.in), problem.b(kind.in), problem.c(kind.out));
                for (kern::HandleLevel level : LEVELS) {
                    const auto dispatcher = std::make_shared<HoldingDispatcher>();
                    const auto handle = make_handle(level, {kern::Platform::CPU, dispatcher});
                    const auto op = handle->create_operator<kern::BatchedMatrixMul>();
                    op->param() = single->param();
                    const Tensor c(wanted.layout());
                    const size_t bytes = op->workspace_in_bytes(a.layout(), b.layout(), c.layout());
                    EXPECT_EQ(bytes, level == NAIVE ? 0 : inner_bytes);
                    const GuardedBuffer workspace(bytes);
                    op->exec(a.raw(), b.raw(), c.raw(), {workspace.data(), bytes});
                    // A task runs with the parameters of its call.
                    op->param() = {!problem.transpose_a, !problem.transpose_b, kind.data_type};
                    op->workspace_in_bytes(batched(count, problem.b(kind.in), 0),
                                           batched(count, problem.a(kind.in), 0), c.layout());
                    EXPECT_EQ(dispatcher->get_nr_dispatched(), level == NAIVE ? count : 1);
                    dispatcher->sync();
                    EXPECT_EQ(c.bytes(), wanted.bytes())
                        << problem.text() << " " << kind.out.name() << " batches " << count
                        << " level " << level_name(level);
                }
            }
        }
    }
}

}  // namespace
}  // namespace kern_test
