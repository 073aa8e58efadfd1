// Which routine a product takes, the workspace that it asks for, and the parts of the armv7
// routines that MatrixMul itself does not use.
#include "kernels/armv7/float_product.h"
#include "kernels/armv7/matrix_mul.h"
#include "tests/kernels/matrix_mul_test_util.h"

namespace kern_test {
namespace {

using kern::armv7::FloatProduct;
using kern::armv7::StorageOrder;

constexpr size_t FLOAT_PANELS = 0xF4040;

// Without panels a float product leaves its workspace alone: short ones that are not transposed,
// and those by a contiguous column.
TEST(MatrixMulPaths, SmallFloatProductsNeedNoPanels) {
    const struct {
        Problem problem;
        bool small;
    } cases[] = {
        {{1, 40, 9, false, false, 0}, true},   {{7, 13, 300, false, false, 2}, true},
        {{8, 13, 2, false, false, 0}, true},   {{8, 13, 3, false, false, 0}, false},
        {{9, 13, 2, false, false, 0}, false},  {{30, 1, 20, false, false, 0}, true},
        {{30, 1, 20, false, false, 1}, false}, {{1, 40, 9, false, true, 0}, false},
        {{1, 40, 9, true, false, 0}, false},   {{30, 1, 20, false, true, 0}, false},
    };
    const auto untouched = [](uint8_t byte) { return byte == 0xff; };
    for (const auto& [problem, small] : cases) {
        const Operands in(problem, kind("float"));
        const Tensor c(problem.c(DType::Float32()));
        const GuardedBuffer workspace(FLOAT_PANELS);
        const auto handle = make_handle(ARMV7);
        const auto op = handle->create_operator<kern::MatrixMul>();
        op->param() = {problem.transpose_a, problem.transpose_b};
        op->exec(in.a.raw(), in.b.raw(), c.raw(), {workspace.data(), FLOAT_PANELS});
        EXPECT_EQ(std::all_of(workspace.data(), workspace.data() + FLOAT_PANELS, untouched), small)
            << problem.text();
    }
}

TEST(MatrixMulPaths, PathsAndTheirWorkspaces) {
    using Path = kern::fallback::MatrixMulImpl::Path;
    using ArmPath = kern::armv7::MatrixMulImpl::IntegerPath;
    constexpr auto NONE = ArmPath::FALLBACK, INT8 = ArmPath::INT8, TO_16 = ArmPath::INT8_TO_INT16;
    const Problem floats{9, 13, 5, false, false, 0}, rows{2, 3, 100, false, false, 0},
        tall{3, 5, 100, false, false, 0};
    const struct {
        const char* kind;
        Problem problem;
        Path path;
        size_t fallback;
        ArmPath arm_path;
        size_t armv7;
    } cases[] = {
        {"float", floats, Path::FLOAT, 64 * (5 + 8) + 32, NONE, FLOAT_PANELS},
        {"float in 32", floats, Path::NAIVE, 0, NONE, 0},
        {"half", floats, Path::NAIVE, 0, NONE, 0},
        {"8 to 16", rows, Path::ROWS, 0, NONE, 0},
        {"8 to 16", tall, Path::NAIVE, 0, TO_16, 1536 + 1536 + 512},
        {"8 to 16", {3, 5, 100, true, false, 0}, Path::NAIVE, 0, NONE, 0},
        {"8 to 16", {2, 5, 100, false, true, 0}, Path::NAIVE, 0, NONE, 0},
        {"8 to 32", rows, Path::ROWS, 0, NONE, 0},
        {"8 to 32", {2, 3, 17, false, true, 0}, Path::NAIVE, 0, INT8, 128 + 128 + 32},
        {"8 to 32", {1, 1, 1, true, false, 0}, Path::NAIVE, 0, INT8, 64 + 64 + 32},
        {"8 to 32", {5, 3, 17, false, false, 0}, Path::NAIVE, 0, INT8, 256 + 128 + 32},
        {"quantised", rows, Path::ROWS, 0, NONE, 0},
        {"quantised", {5, 3, 17, true, true, 0}, Path::NAIVE, 0, INT8, 256 + 128 + 32},
        {"zero points", rows, Path::NAIVE, 0, NONE, 0},
    };
    const auto handle = make_handle(ARMV7);
    for (const auto& row : cases) {
        SCOPED_TRACE(row.problem.text() + " " + row.kind);
        const Kind& item = kind(row.kind);
        const TensorLayout a = row.problem.a(item.a), b = row.problem.b(item.b),
                           c = row.problem.c(item.c);
        kern::fallback::MatrixMulImpl fallback(handle.get());
        kern::armv7::MatrixMulImpl arm(handle.get());
        fallback.param() =
            arm.param() = {row.problem.transpose_a, row.problem.transpose_b, item.data_type};
        EXPECT_EQ(fallback.workspace_in_bytes(a, b, c), row.fallback);
        EXPECT_EQ(arm.workspace_in_bytes(a, b, c), row.armv7);
        EXPECT_EQ(fallback.path(a, c), row.path);
        EXPECT_EQ(arm.path(a, c), row.path);
        EXPECT_EQ(arm.integer_path(a, c), row.arm_path);
    }
}

// alpha * op(A) * op(B) + beta * C of whole numbers, over two blocks of k, in either storage order.
TEST(MatrixMulPaths, FactorsAndStorageOrder) {
    constexpr size_t ROWS = 14, COLUMNS = 6, DEPTH = 258;
    std::mt19937 random(2);
    std::uniform_int_distribution<int> whole(-8, 8);
    std::vector<float> a(ROWS * DEPTH), b(DEPTH * COLUMNS), old_c(ROWS * COLUMNS);
    for (auto* values : {&a, &b, &old_c})
        std::generate(values->begin(), values->end(), [&] { return float(whole(random)); });
    const GuardedBuffer panels(FLOAT_PANELS);
    for (const auto& [alpha, beta] : {std::pair(1.0f, 1.0f), {2.0f, 0.5f}, {-1.0f, 0.0f}}) {
        for (auto order : {StorageOrder::ROW_MAJOR, StorageOrder::COLUMN_MAJOR}) {
            const bool by_row = order == StorageOrder::ROW_MAJOR;
            std::vector<float> c = old_c;
            FloatProduct product;
            product.order = order;
            product.rows = ROWS, product.columns = COLUMNS, product.depth = DEPTH;
            product.alpha = alpha, product.beta = beta;
            product.a = a.data(), product.lda = by_row ? DEPTH : ROWS;
            product.b = b.data(), product.ldb = by_row ? COLUMNS : DEPTH;
            product.c = c.data(), product.ldc = by_row ? COLUMNS : ROWS;
            kern::armv7::float_product(product, panels.data());
            const auto position = [&](size_t i, size_t j, size_t height, size_t width) {
                return by_row ? i * width + j : j * height + i;
            };
            for (size_t i = 0; i < ROWS; ++i)
                for (size_t j = 0; j < COLUMNS; ++j) {
                    const size_t at = position(i, j, ROWS, COLUMNS);
                    float sum = 0;
                    for (size_t k = 0; k < DEPTH; ++k)
                        sum += a[position(i, k, ROWS, DEPTH)] * b[position(k, j, DEPTH, COLUMNS)];
                    ASSERT_EQ(c[at], alpha * sum + beta * old_c[at]) << alpha << " " << beta;
                }
        }
    }
}

}  // namespace
}  // namespace kern_test
