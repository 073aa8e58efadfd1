// Which routine a float product of the armv7 level takes, and what its panels look like.
#include <algorithm>

#include "kernels/armv7/float_product.h"
#include "tests/kernels/matrix_mul_test_util.h"

namespace kern_test {
namespace {

using kern::armv7::FloatProduct;
using kern::armv7::StorageOrder;

constexpr size_t WORKSPACE = 0xF4040;
constexpr size_t A_PANELS = 256 * 492 * 4 + 32;  // behind those of B

// A workspace on a boundary of 16, in which what no routine has written is 0xff.
struct PanelMemory {
    GuardedBuffer buffer{WORKSPACE};
    uint8_t* data() const { return buffer.data(); }
    bool is_untouched() const {
        return std::all_of(data(), data() + WORKSPACE, [](uint8_t byte) { return byte == 0xff; });
    }
    float value(size_t offset, size_t index) const {
        float result;
        std::memcpy(&result, data() + offset + index * sizeof(float), sizeof(result));
        return result;
    }
};

void exec(const Problem& problem, const Tensor& a, const Tensor& b, const Tensor& c,
          const PanelMemory& memory) {
    const auto handle = make_handle(ARMV7);
    const auto op = handle->create_operator<kern::MatrixMul>();
    op->param() = {problem.transpose_a, problem.transpose_b, MatrixMulDataType::DEFAULT};
    ASSERT_EQ(op->workspace_in_bytes(a.layout(), b.layout(), c.layout()), WORKSPACE);
    op->exec(a.raw(), b.raw(), c.raw(), {memory.data(), WORKSPACE});
}

TEST(MatrixMulPaths, ShortUnturnedProductsNeedNoPanels) {
    const struct {
        Problem problem;
        bool small;
    } cases[] = {
        {{1, 40, 9, false, false, 0}, true},   {{7, 13, 300, false, false, 2}, true},
        {{8, 13, 2, false, false, 0}, true},   {{8, 13, 3, false, false, 0}, false},
        {{9, 13, 2, false, false, 0}, false},  {{30, 1, 20, false, false, 0}, true},
        {{30, 1, 20, false, false, 1}, false},  // a column that is not contiguous
        {{1, 40, 9, false, true, 0}, false},   {{1, 40, 9, true, false, 0}, false},
        {{30, 1, 20, false, true, 0}, false},
    };
    for (const auto& item : cases) {
        const DType f = DType::Float32();
        const Tensor a(item.problem.a(f)), b(item.problem.b(f)), c(item.problem.c(f));
        const PanelMemory memory;
        exec(item.problem, a, b, c, memory);
        EXPECT_EQ(memory.is_untouched(), item.small) << item.problem.text();
    }
}

// Only Float32 accumulated in Float32 has panels at all.
TEST(MatrixMulPaths, OtherFloatsGoToTheLevelsBelow) {
    const auto handle = make_handle(ARMV7);
    const auto op = handle->create_operator<kern::MatrixMul>();
    const TensorLayout f({9, 9}, DType::Float32()), h({9, 9}, DType::Float16());
    op->param().data_type = MatrixMulDataType::FLOAT_IO16_CO32;
    EXPECT_EQ(op->workspace_in_bytes(f, f, f), 0u);
    op->param().data_type = MatrixMulDataType::DEFAULT;
    EXPECT_EQ(op->workspace_in_bytes(h, h, h), 0u);
    EXPECT_EQ(op->workspace_in_bytes(f, f, f), WORKSPACE);
}

// Rows of the caller's A in panels of 4, columns of its B in panels of 12, the values of one k side
// by side, zeros behind the last line. Of a deep product the last 256 values of k are left there.
TEST(MatrixMulPaths, PanelsHoldTheValuesOfOneKSideBySide) {
    std::mt19937 random(1);
    for (size_t depth : Sizes{1, 70, 259}) {
        for (int flags = 0; flags < 4; ++flags) {
            const Problem problem{9, 29, depth, (flags & 1) != 0, (flags & 2) != 0, 1};
            const DType f = DType::Float32();
            Tensor a(problem.a(f)), b(problem.b(f));
            const Tensor c(problem.c(f));
            a.fill_uniform(random, -1, 1);
            b.fill_uniform(random, -1, 1);
            const PanelMemory memory;
            exec(problem, a, b, c, memory);
            const size_t first_k = (depth - 1) / 256 * 256, block = depth - first_k;
            const auto expect_panels = [&](size_t offset, size_t lines, size_t width, auto wanted) {
                for (size_t line = 0; line < (lines + width - 1) / width * width; ++line)
                    for (size_t k = 0; k < block; ++k)
                        ASSERT_EQ(memory.value(offset, line / width * width * block + k * width +
                                                           line % width),
                                  line < lines ? wanted(line, first_k + k) : 0.0f)
                            << problem.text() << " line " << line << " k " << k;
            };
            expect_panels(0, problem.rows, 4, [&](size_t i, size_t k) {
                return a.at<float>(problem.a_position(i, k));
            });
            expect_panels(A_PANELS, problem.columns, 12, [&](size_t j, size_t k) {
                return b.at<float>(problem.b_position(k, j));
            });
        }
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
    const PanelMemory memory;
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
            kern::armv7::float_product(product, memory.data());
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
