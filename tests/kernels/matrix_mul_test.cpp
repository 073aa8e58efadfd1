// Every kind of matrix product at every level against plain sums. Half of all bytes are -128, so
// that the wrap of the armv7 level shows wherever its products run, and nowhere else.
#include <limits>
#include <thread>

#include "tests/kernels/matrix_mul_test_util.h"

namespace kern_test {
namespace {

// Around the edges of tiles, panels and vectors of all levels: a part of all combinations that
// meets every pair of sizes.
std::vector<Problem> problems() {
    constexpr size_t STEP = 11;  // has no factor in common with the lists
    std::vector<Problem> result;
    size_t count = 0;
    for (size_t rows : Sizes{1, 2, 3, 4, 5, 7, 8, 9, 13, 16, 17, 35})
        for (size_t columns : Sizes{1, 2, 3, 4, 8, 11, 12, 13, 15, 16, 17, 24, 25, 33, 65})
            for (size_t depth : Sizes{0, 1, 2, 3, 5, 7, 8, 9, 15, 16, 17, 31, 33, 40, 64, 65, 131})
                for (int flags = 0; flags < 8; ++flags)
                    if (++count % STEP == 0)
                        result.push_back({rows, columns, depth, (flags & 1) != 0, (flags & 2) != 0,
                                          flags & 4 ? size_t{3} : size_t{0}});
    for (size_t rows : Sizes{0, 5})
        for (bool transpose : {false, true})
            result.push_back({rows, 5 - rows, 3, transpose, !transpose, 0});
    return result;
}

// Around the edges of blocks: at armv7 480 rows and columns and a depth of 256, at x86 192 columns
// and a depth of 256 and more, in several blocks of A at 9000. Sums of bytes pass 2^31 at 140000.
const Problem LARGE[] = {
    {5, 479, 255, false, true, 0},   {9, 480, 256, false, false, 1},
    {4, 481, 257, false, true, 3},   {479, 13, 5, true, true, 0},
    {481, 3, 9, false, true, 0},     {480, 12, 2, true, false, 2},
    {2, 25, 513, true, false, 0},    {1, 961, 17, true, true, 0},
    {12, 1, 100, false, false, 0},   {13, 1, 18, false, true, 1},
    {33, 37, 343, false, true, 0},   {33, 37, 520, true, false, 3},
    {33, 37, 9000, false, true, 0},  {241, 21, 520, false, true, 0},
    {3, 401, 20, false, false, 0},   {3, 5, 140000, false, true, 0},
    {1, 1, 140000, false, false, 0}, {17, 17, 140000, false, true, 0},
};

// What the elements are like, in turn.
enum class Fill {
    RANDOM,
    ONE_SIGN,  // sums grow as far as they can
    TINY,      // products vanish and leave a negative zero
    SPECIAL,   // some lines of B hold no number or an infinite one
    COUNT,
};

void fill(const Problem& problem, const Kind& kind, Fill how, std::mt19937& random, Operands& in) {
    if (kind.a == DType::Float32()) {
        const float most = how == Fill::ONE_SIGN ? 0.0f : 1.0f;
        in.a.fill_uniform(random, -1, most);
        in.b.fill_uniform(random, -1, most);
        if (how == Fill::TINY) {
            in.a.fill([] { return -1e-30; });
            in.b.fill([] { return 1e-30; });
        }
        for (size_t j = 0; how == Fill::SPECIAL && problem.depth > 0 && j < problem.columns; j += 5)
            in.b.set(problem.b_position(j % problem.depth, j), j % 2 == 0 ? NAN : INFINITY);
    } else if (kind.a == DType::Float16()) {
        in.a.fill_integers(random, -8, 7);  // sums are exact
        in.b.fill_integers(random, -8, 7);
    } else {
        const auto value = [&] {
            const int least = kind.a_zero != 0 ? 0 : -128;
            return how == Fill::ONE_SIGN || random() % 2 == 0
                       ? least
                       : static_cast<int>(random() % 256) + least;
        };
        in.a.fill(value);
        in.b.fill(value);
        if (how == Fill::ONE_SIGN && problem.depth > 100000)
            in.b.fill([] { return 127; });
    }
}

// Where a level folds subtractions of a row's and of a column's value into the product, or of one
// of them, they have the bits of later ones; those of integers wrap.
void expect_folded_bits(kern::HandleLevel level, const Problem& problem, const Kind& item,
                        const Operands& in, const Tensor& plain, std::mt19937& random) {
    Tensor rows({problem.rows, 1}, item.c), columns({1, problem.columns}, item.c);
    for (Tensor* tensor : {&rows, &columns}) {
        if (item.c == DType::Float32())
            tensor->fill_uniform(random, -1, 1);
        else
            tensor->fill_integers(random, INT32_MIN, INT32_MAX);
    }
    for (const auto& [by_row, by_column] : {std::pair(true, true), {true, false}, {false, true}}) {
        std::vector<kern::MatrixMul::Epilogue> operations;
        if (by_row)
            operations.push_back({kern::ElementwiseMode::SUB, rows.raw()});
        if (by_column)
            operations.push_back({kern::ElementwiseMode::SUB, columns.raw()});
        const Tensor wanted(plain.layout());
        for (size_t i = 0; i < problem.rows * problem.columns; ++i) {
            wanted.set(i, plain.get(i));
            if (by_row)
                wanted.set(i, wanted.get(i) - rows.get(i / problem.columns));
            if (by_column)
                wanted.set(i, wanted.get(i) - columns.get(i % problem.columns));
        }
        expect_same_product(*product(level, problem, item, in, 0, operations), wanted,
                            problem.text() + " folded " + item.name + " " + level_name(level));
    }
}

void check_levels(const Problem& problem, const Kind& item, Fill how, std::mt19937& random) {
    Operands in(problem, item);
    fill(problem, item, how, random, in);
    const Reference reference(problem, item, in);
    const auto plain = reference.of(NAIVE);
    for (kern::HandleLevel level : LEVELS) {
        const bool own = level != NAIVE && level != FALLBACK;
        const auto wanted = own ? reference.of(level) : nullptr;
        const auto got = product(level, problem, item, in, random() % 16);
        expect_same_product(*got, own ? *wanted : *plain,
                            problem.text() + " " + item.name + " " + level_name(level));
        const bool folds = own && level != ARMV7 &&
                           (item.c == DType::Int32() || item.name == std::string("float"));
        if (folds)
            expect_folded_bits(level, problem, item, in, *wanted, random);
        if (testing::Test::HasFatalFailure())
            return;
    }
}

TEST(MatrixMul, EveryKindAndLevelGivesThePlainSums) {
    std::mt19937 random(1);
    size_t turn = 0;
    for (const Problem& problem : problems())
        for (const Kind& item : kinds()) {
            check_levels(problem, item,
                         static_cast<Fill>(++turn % 9 % static_cast<size_t>(Fill::COUNT)), random);
            if (HasFatalFailure())
                return;
        }
}

TEST(MatrixMul, BlocksJoinAndSumsWrap) {
    std::mt19937 random(2);
    for (const Problem& problem : LARGE)
        for (const char* name : {"float", "8 to 16", "8 to 32"}) {
            const bool wraps = problem.depth > 100000;
            check_levels(problem, kind(name), wraps ? Fill::ONE_SIGN : Fill::RANDOM, random);
            if (HasFatalFailure())
                return;
        }
}

TEST(MatrixMul, HalfRoundsAfterEveryStepOrOnce) {
    const Problem problem{1, 1, 3, false, true, 0};
    for (const auto& [name, result] : {std::pair("half", 2048.0), {"half in 32", 2050.0}}) {
        Operands in(problem, kind(name));
        in.b.fill([] { return 1; });
        in.a.set(0, 2048), in.a.set(1, 1), in.a.set(2, 1);
        for (kern::HandleLevel level : LEVELS)
            EXPECT_EQ(product(level, problem, kind(name), in)->get(0), result) << level_name(level);
    }
}

// The vectors of 32-bit Arm take denormals for zeros and give zeros for them; everything else here
// computes with them.
TEST(MatrixMul, DenormalsVanishInVectorsOf32BitArmOnly) {
#if defined(__ARM_NEON)
    constexpr bool VECTORS_FLUSH = true;
#else
    constexpr bool VECTORS_FLUSH = false;
#endif
    for (size_t size : Sizes{1, 2, 9, 30}) {
        const Problem problem{size, size, 40, false, true, 0};
        Operands in(problem, kind("float"));
        in.a.fill([] { return 0x1p-130; });
        in.b.fill([] { return 0.5; });
        for (kern::HandleLevel level : LEVELS) {
            const auto c = product(level, problem, kind("float"), in);
            const bool flushes = VECTORS_FLUSH && level != NAIVE;
            for (size_t i = 0; i < size * size; ++i)
                ASSERT_EQ(c->get(i), flushes ? 0 : 40 * 0x1p-131)
                    << level_name(level) << " " << problem.text();
        }
    }
}

TEST(MatrixMul, OneOperatorRunsOnTwoThreads) {
    const Problem problem{9, 29, 70, false, true, 0};
    const Kind& item = kind("float");
    std::mt19937 random(3);
    Operands in(problem, item);
    fill(problem, item, Fill::RANDOM, random, in);
    for (kern::HandleLevel level : LEVELS) {
        const auto wanted = product(level, problem, item, in);
        const auto handle = make_handle(level);
        const auto op = handle->create_operator<kern::MatrixMul>();
        ASSERT_TRUE(op->is_thread_safe());
        op->param() = {false, true, item.data_type};
        const auto work = [&] {
            const Tensor c(problem.c(item.c));
            const size_t bytes = op->workspace_in_bytes(in.a.layout(), in.b.layout(), c.layout());
            const GuardedBuffer workspace(bytes);
            for (int round = 0; round < 20; ++round) {
                op->exec(in.a.raw(), in.b.raw(), c.raw(), {workspace.data(), bytes});
                EXPECT_EQ(c.bytes(), wanted->bytes()) << level_name(level);
            }
        };
        std::thread other(work);
        work();
        other.join();
    }
}

}  // namespace
}  // namespace kern_test
