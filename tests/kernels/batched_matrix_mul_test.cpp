#include "kernels/operators/batched_matrix_mul.h"

#include "tests/kernels/dispatchers.h"
#include "tests/kernels/matrix_mul_test_util.h"

namespace kern_test {
namespace {

// All batches are in one place where the stride is 0.
TensorLayout batched(size_t count, TensorLayout matrix, ptrdiff_t stride) {
    matrix.insert_axis_inplace(0, 1, stride);
    matrix[0] = count;
    return matrix;
}

RawTensor matrix_of(RawTensor batches, size_t batch) {
    const size_t step =
        static_cast<size_t>(batches.layout.stride[0]) * batches.layout.dtype.element_bytes();
    return {batches.ptr<uint8_t>() + batch * step, batches.layout.remove_axis(0)};
}

void expect_product_of_each(const Problem& problem, const Kind& item, size_t count) {
    std::mt19937 random(21);
    const kern::MatrixMul::Param param{problem.transpose_a, problem.transpose_b, item.data_type};
    Tensor a(batched(count, problem.a(item.a), 400)), b(batched(count, problem.b(item.b), 0));
    a.fill_integers(random, -100, 100);
    b.fill_integers(random, -100, 100);
    const Tensor wanted(batched(count, problem.c(item.c), 70));
    const auto naive = make_handle(NAIVE);
    const auto single = naive->create_operator<kern::MatrixMul>();
    single->param() = param;
    for (size_t n = 0; n < count; ++n)
        single->exec(matrix_of(a.raw(), n), matrix_of(b.raw(), n), matrix_of(wanted.raw(), n), {});
    EXPECT_TRUE(kern::BatchedMatrixMul::deduce_shape(param, a.layout(), b.layout())
                    .same_shape(wanted.layout()));
    const auto inner = kern::inplace_handle()->create_operator<kern::MatrixMul>();
    inner->param() = param;
    const size_t inner_bytes =
        inner->workspace_in_bytes(problem.a(item.a), problem.b(item.b), problem.c(item.c));
    for (kern::HandleLevel level : LEVELS) {
        SCOPED_TRACE(problem.text() + " " + item.name + " " + level_name(level));
        const auto dispatcher = std::make_shared<HoldingDispatcher>();
        const auto handle = make_handle(level, {kern::Platform::CPU, dispatcher});
        const auto op = handle->create_operator<kern::BatchedMatrixMul>();
        op->param() = param;
        const Tensor c(wanted.layout());
        const size_t bytes = op->workspace_in_bytes(a.layout(), b.layout(), c.layout());
        EXPECT_EQ(bytes, level == NAIVE ? 0 : inner_bytes);
        const GuardedBuffer workspace(bytes);
        op->exec(a.raw(), b.raw(), c.raw(), {workspace.data(), bytes});
        // A task runs with the parameters of its call.
        op->param() = {!problem.transpose_a, !problem.transpose_b, item.data_type};
        op->workspace_in_bytes(batched(count, problem.b(item.b), 400),
                               batched(count, problem.a(item.a), 400), c.layout());
        EXPECT_EQ(dispatcher->get_nr_dispatched(), level == NAIVE ? count : 1);
        dispatcher->sync();
        EXPECT_EQ(c.bytes(), wanted.bytes()) << count;
    }
}

TEST(BatchedMatrixMul, IsTheProductOfEachBatch) {
    for (const char* name : {"float", "8 to 16", "8 to 32"})
        for (int flags = 0; flags < 4; ++flags)
            for (size_t count : Sizes{0, 1, 3})
                expect_product_of_each({5, 9, 17, (flags & 1) != 0, (flags & 2) != 0, 2},
                                       kind(name), count);
}

}  // namespace
}  // namespace kern_test
