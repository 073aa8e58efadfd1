// Matrix products of integers. Half of all elements are -128, so that the wrap of the armv7 level
// shows wherever its products into 32 bits run, and nowhere else.
#include <algorithm>

#include "kernels/armv7/int8_product.h"
#include "kernels/armv7/matrix_mul.h"
#include "tests/kernels/matrix_mul_test_util.h"

namespace kern_test {
namespace {

struct Kind {
    const char* name;
    MatrixMulDataType data_type;
    DType a, b, c;                // what the operator is told
    DType stored_in, stored_out;  // plain types of the same bytes
    int a_zero = 0, b_zero = 0;
};

const std::vector<Kind>& kinds() {
    static const std::vector<Kind> all = {
        {"8 to 16", MatrixMulDataType::INT8_TO_INT16, DType::Int8(), DType::Int8(), DType::Int16(),
         DType::Int8(), DType::Int16()},
        {"8 to 32", MatrixMulDataType::INT8_TO_INT32, DType::Int8(), DType::Int8(), DType::Int32(),
         DType::Int8(), DType::Int32()},
        {"quantised", MatrixMulDataType::INT8_TO_INT32, DType::QuantizedS8(0.5f),
         DType::QuantizedS8(2), DType::QuantizedS32(1), DType::Int8(), DType::Int32()},
        {"zero points", MatrixMulDataType::ASYMM8_TO_S32, DType::Quantized8Asymm(0.5f, 3),
         DType::Quantized8Asymm(2, 250), DType::QuantizedS32(1), DType::Uint8(), DType::Int32(), 3,
         250},
    };
    return all;
}
const Kind& to_int16() {
    return kinds()[0];
}
const Kind& to_int32() {
    return kinds()[1];
}

RawTensor as(const Tensor& tensor, DType dtype) {
    RawTensor raw = tensor.raw();
    raw.layout.dtype = dtype;
    return raw;
}

struct Operands {
    Tensor a, b;
    Operands(const Problem& problem, const Kind& kind)
        : a(problem.a(kind.stored_in)), b(problem.b(kind.stored_in)) {}
    void fill(std::mt19937& random) {
        const auto value = [&] { return random() % 2 == 0 ? -128 : static_cast<int8_t>(random()); };
        a.fill(value);
        b.fill(value);
    }
};

// The workspace ends `misalignment` bytes before unmapped memory, and nothing around it changes.
std::unique_ptr<Tensor> product(kern::HandleLevel level, const Problem& problem, const Kind& kind,
                                const Operands& in, size_t misalignment = 0) {
    auto c = std::make_unique<Tensor>(problem.c(kind.stored_out));
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<kern::MatrixMul>();
    op->param() = {problem.transpose_a, problem.transpose_b, kind.data_type};
    const size_t bytes =
        op->workspace_in_bytes(problem.a(kind.a), problem.b(kind.b), problem.c(kind.c));
    const GuardedBuffer memory(bytes + 16);
    uint8_t* workspace = memory.data() + 16 - misalignment;
    op->exec(as(in.a, kind.a), as(in.b, kind.b), as(*c, kind.c), {workspace, bytes});
    const auto untouched = [](uint8_t byte) { return byte == 0xff; };
    EXPECT_TRUE(std::all_of(memory.data(), workspace, untouched));
    EXPECT_TRUE(std::all_of(workspace + bytes, memory.data() + bytes + 16, untouched));
    return c;
}

bool by_whole_rows(const Problem& problem, const Kind& kind) {
    return !problem.transpose_a && !problem.transpose_b && problem.rows <= 2 && kind.a_zero == 0;
}

// Element by element, in numbers that hold everything.
std::string reference(kern::HandleLevel level, const Problem& problem, const Kind& kind,
                      const Operands& in) {
    const bool wraps = level == ARMV7 && kind.data_type == MatrixMulDataType::INT8_TO_INT32 &&
                       !by_whole_rows(problem, kind);
    const Tensor c(problem.c(kind.stored_out));
    for (size_t i = 0; i < problem.rows; ++i) {
        for (size_t j = 0; j < problem.columns; ++j) {
            double sum = 0;
            const auto term = [&](size_t k) {
                return k >= problem.depth ? 0
                                          : (in.a.get(problem.a_position(i, k)) - kind.a_zero) *
                                                (in.b.get(problem.b_position(k, j)) - kind.b_zero);
            };
            for (size_t k = 0; k < problem.depth; ++k) {
                sum += term(k);
                if (wraps && k % 16 < 8 && term(k) + term(k + 8) == 32768)
                    sum -= 65536;
            }
            c.set(i * problem.columns + j, sum);
        }
    }
    return c.bytes();
}

TEST(MatrixMulInt, EveryLevelAgreesWithPlainSums) {
    std::mt19937 random(11);
    size_t misalignment = 0;
    for (size_t rows : Sizes{1, 2, 3, 4, 5, 8, 9})
        for (size_t columns : Sizes{1, 2, 3, 8, 9, 17})
            for (size_t depth : Sizes{0, 1, 8, 16, 17, 40})
                for (int flags = 0; flags < 8; ++flags)
                    for (const Kind& kind : kinds()) {
                        const Problem problem{rows,
                                              columns,
                                              depth,
                                              (flags & 1) != 0,
                                              (flags & 2) != 0,
                                              flags & 4 ? size_t{3} : size_t{0}};
                        Operands in(problem, kind);
                        in.fill(random);
                        const std::string exact = reference(NAIVE, problem, kind, in);
                        for (kern::HandleLevel level : LEVELS) {
                            const auto c = product(level, problem, kind, in, ++misalignment % 16);
                            ASSERT_EQ(c->bytes(),
                                      level == ARMV7 ? reference(level, problem, kind, in) : exact)
                                << problem.text() << " " << kind.name << " level "
                                << level_name(level);
                        }
                    }
}

TEST(MatrixMulInt, NothingIsTouchedWithoutRowsOrColumns) {
    for (const Problem& problem :
         {Problem{0, 5, 3, false, true, 0}, Problem{5, 0, 3, true, false, 0},
          Problem{5, 0, 3, false, false, 0}, Problem{0, 0, 0, true, true, 0}})
        for (const Kind& kind : kinds())
            for (kern::HandleLevel level : LEVELS)
                product(level, problem, kind, Operands(problem, kind));
}

// Two products of (-128) x (-128) at positions k and k + 8 of one step of 16.
TEST(MatrixMulInt, OnlyTheStatedPairWrapsAndOnlyAtArmv7) {
    constexpr size_t DEPTH = 40;
    const struct {
        std::vector<size_t> both;  // positions where A and B are -128; all others are zeros
        double exact, armv7;
    } rows[] = {
        {{0, 8}, 32768, -32768},     {{7, 15}, 32768, -32768},      {{16, 24}, 32768, -32768},
        {{0, 1}, 32768, 32768},      {{7, 8}, 32768, 32768},        {{8, 16}, 32768, 32768},
        {{0, 24}, 32768, 32768},     {{0, 1, 8, 9}, 65536, -65536}, {{24, 32}, 32768, 32768},
        {{0, 8, 16}, 49152, -16384}, {{32, 39}, 32768, 32768},
    };
    for (const auto& row : rows) {
        for (const Problem& problem :
             {Problem{1, 1, DEPTH, false, true, 0}, Problem{2, 3, DEPTH, true, false, 0},
              Problem{5, 2, DEPTH, false, false, 0}, Problem{2, 2, DEPTH, false, false, 0}}) {
            Operands in(problem, to_int32());
            in.a.fill([] { return 0; });
            in.b.fill([] { return 0; });
            for (size_t k : row.both) {
                in.a.set(problem.a_position(problem.rows - 1, k), -128);
                in.b.set(problem.b_position(k, problem.columns - 1), -128);
            }
            for (kern::HandleLevel level : LEVELS) {
                const auto c = product(level, problem, to_int32(), in);
                const bool wraps = level == ARMV7 && !by_whole_rows(problem, to_int32());
                EXPECT_EQ(c->get(problem.rows * problem.columns - 1), wraps ? row.armv7 : row.exact)
                    << row.both[0] << " and " << row.both[1] << " " << problem.text() << " level "
                    << level_name(level);
            }
        }
    }
    // The neighbours of the pair's extreme fit.
    const Problem problem{3, 1, 16, false, true, 0};
    for (int other : {-127, 127}) {
        Operands in(problem, to_int32());
        in.a.fill([] { return -128; });
        in.b.fill([] { return -128; });
        for (size_t k = 8; k < 16; ++k)
            in.b.set(k, other);
        EXPECT_EQ(product(ARMV7, problem, to_int32(), in)->get(2), 8 * 128 * (128 - other));
    }
}

TEST(MatrixMulInt, SumsWrapIn32Bits) {
    constexpr size_t DEPTH = 132200;
    for (const Problem& problem :
         {Problem{3, 1, DEPTH, false, true, 0}, Problem{1, 1, DEPTH, false, false, 0}}) {
        Operands in(problem, to_int32());
        in.a.fill([] { return 127; });
        in.b.fill([] { return -128; });
        for (kern::HandleLevel level : LEVELS)
            EXPECT_EQ(product(level, problem, to_int32(), in)->get(0),
                      4294967296.0 - 127.0 * 128.0 * DEPTH);
    }
}

// Lines in panels of `width`: of each 16 positions first those of the panel's first line.
template <size_t WIDTH>
void expect_panels(size_t count, size_t depth, bool contiguous) {
    SCOPED_TRACE(testing::Message() << count << " lines of " << depth << " in panels of " << WIDTH);
    const size_t padded = (depth + 15) / 16 * 16;
    const size_t panel_bytes = WIDTH * padded;
    const size_t panels = (count + WIDTH - 1) / WIDTH;
    const GuardedBuffer source(count * depth), target(panels * panel_bytes);
    std::vector<int8_t> wanted(panels * panel_bytes, int8_t{-1});
    auto* values = static_cast<int8_t*>(static_cast<void*>(source.data()));
    for (size_t line = 0; line < count; ++line) {
        for (size_t k = 0; k < padded; ++k) {
            const auto value = static_cast<int8_t>(k < depth ? 100 + 17 * line + 5 * k : 0);
            if (k < depth)
                values[contiguous ? line * depth + k : k * count + line] = value;
            wanted[line / WIDTH * panel_bytes + k / 16 * 16 * WIDTH + line % WIDTH * 16 + k % 16] =
                value;
        }
    }
    const auto step = static_cast<ptrdiff_t>(contiguous ? depth : count);
    auto* packed = static_cast<int8_t*>(static_cast<void*>(target.data()));
    kern::armv7::pack_int8_panels<WIDTH>(
        {values, count, contiguous ? step : 1, contiguous ? 1 : step}, depth, packed);
    EXPECT_TRUE(std::equal(wanted.begin(), wanted.end(), packed));
}

TEST(MatrixMulInt, PanelsAreLaidOutInStepsOf16) {
    for (bool contiguous : {true, false}) {
        for (size_t count : Sizes{1, 2, 3, 4, 5, 7, 8, 9, 18}) {
            for (size_t depth : Sizes{1, 7, 8, 15, 16, 17, 40}) {
                expect_panels<2>(count, depth, contiguous);
                expect_panels<4>(count, depth, contiguous);
            }
        }
    }
}

// What runs, and the workspace that it needs.
TEST(MatrixMulInt, PathsAndTheirWorkspaces) {
    using Fallback = kern::fallback::MatrixMulImpl;
    using Arm = kern::armv7::MatrixMulImpl;
    using Path = Fallback::Path;
    using ArmPath = Arm::IntegerPath;
    const struct {
        Problem problem;
        const Kind* kind;
        size_t fallback, armv7;
        Path path;
        ArmPath arm_path;
    } cases[] = {
        {{2, 3, 100, false, false, 0}, &to_int16(), 0, 0, Path::ROWS, ArmPath::FALLBACK},
        {{3, 5, 100, false, false, 0},
         &to_int16(),
         0,
         1536 + 1536 + 512,
         Path::NAIVE,
         ArmPath::INT8_TO_INT16},
        {{3, 5, 100, true, false, 0}, &to_int16(), 0, 0, Path::NAIVE, ArmPath::FALLBACK},
        {{2, 5, 100, false, true, 0}, &to_int16(), 0, 0, Path::NAIVE, ArmPath::FALLBACK},
        {{2, 3, 17, false, false, 0}, &to_int32(), 0, 0, Path::ROWS, ArmPath::FALLBACK},
        {{2, 3, 17, false, true, 0}, &to_int32(), 0, 128 + 128 + 32, Path::NAIVE, ArmPath::INT8},
        {{1, 1, 1, true, false, 0}, &to_int32(), 0, 64 + 64 + 32, Path::NAIVE, ArmPath::INT8},
        {{5, 3, 17, false, false, 0}, &to_int32(), 0, 256 + 128 + 32, Path::NAIVE, ArmPath::INT8},
        {{2, 3, 17, false, false, 0}, &kinds()[2], 0, 0, Path::ROWS, ArmPath::FALLBACK},
        {{5, 3, 17, true, true, 0}, &kinds()[2], 0, 256 + 128 + 32, Path::NAIVE, ArmPath::INT8},
        {{2, 3, 17, false, false, 0}, &kinds()[3], 0, 0, Path::NAIVE, ArmPath::FALLBACK},
    };
    for (const auto& row : cases) {
        const Kind& kind = *row.kind;
        const TensorLayout a = row.problem.a(kind.a), b = row.problem.b(kind.b),
                           c = row.problem.c(kind.c);
        for (kern::HandleLevel level : {NAIVE, FALLBACK, ARMV7}) {
            const auto handle = make_handle(level);
            const auto op = handle->create_operator<kern::MatrixMul>();
            op->param() = {row.problem.transpose_a, row.problem.transpose_b, kind.data_type};
            EXPECT_EQ(op->workspace_in_bytes(a, b, c), level == ARMV7      ? row.armv7
                                                       : level == FALLBACK ? row.fallback
                                                                           : 0)
                << row.problem.text() << " " << kind.name << " level " << level_name(level);
        }
        const auto handle = make_handle(ARMV7);
        const kern::MatrixMul::Param param = {row.problem.transpose_a, row.problem.transpose_b,
                                              kind.data_type};
        Fallback fallback(handle.get());
        Arm arm(handle.get());
        fallback.param() = arm.param() = param;
        EXPECT_EQ(fallback.path(a, c), row.path) << row.problem.text();
        EXPECT_EQ(arm.path(a, c), row.path) << row.problem.text();
        EXPECT_EQ(arm.integer_path(a, c), row.arm_path) << row.problem.text();
    }
}

TEST(MatrixMulInt, WrongArgumentsStopTheProcess) {
    const DType i8 = DType::Int8(), i16 = DType::Int16(), i32 = DType::Int32();
    const DType s8 = DType::QuantizedS8(1), s32 = DType::QuantizedS32(1);
    const DType asymm = DType::Quantized8Asymm(1, 1), u8 = DType::Uint8();
    const auto handle = make_handle(ARMV7);
    const auto op = handle->create_operator<kern::MatrixMul>();
    std::vector<uint8_t> memory(8192);
    const auto exec = [&](MatrixMulDataType data_type, DType a, DType b, DType c,
                          size_t workspace) {
        op->param().data_type = data_type;
        op->exec({memory.data(), TensorLayout({4, 4}, a)},
                 {memory.data() + 64, TensorLayout({4, 4}, b)},
                 {memory.data() + 128, TensorLayout({4, 4}, c)}, {memory.data() + 256, workspace});
    };
    constexpr auto TO_16 = MatrixMulDataType::INT8_TO_INT16;
    constexpr auto TO_32 = MatrixMulDataType::INT8_TO_INT32;
    constexpr auto ASYMM = MatrixMulDataType::ASYMM8_TO_S32;
    exec(TO_32, i8, i8, i32, 160);
    exec(TO_16, i8, i8, i16, 1536);
    exec(TO_32, s8, s8, s32, 160);
    exec(ASYMM, asymm, asymm, s32, 0);
    EXPECT_DEATH(exec(TO_32, i8, i8, i32, 159), "");
    EXPECT_DEATH(exec(TO_16, i8, i8, i16, 1535), "");
    EXPECT_DEATH(exec(TO_16, i8, i8, i32, 4096), "");
    EXPECT_DEATH(exec(TO_16, s8, s8, i16, 4096), "");
    EXPECT_DEATH(exec(TO_32, i8, i8, i16, 4096), "");
    EXPECT_DEATH(exec(TO_32, i8, i8, s32, 4096), "");
    EXPECT_DEATH(exec(TO_32, s8, s8, i32, 4096), "");
    EXPECT_DEATH(exec(TO_32, i8, s8, i32, 4096), "");
    EXPECT_DEATH(exec(TO_32, u8, u8, i32, 4096), "");
    EXPECT_DEATH(exec(TO_32, asymm, asymm, s32, 4096), "");
    EXPECT_DEATH(exec(ASYMM, u8, u8, s32, 4096), "");
    EXPECT_DEATH(exec(ASYMM, asymm, asymm, i32, 4096), "");
    EXPECT_DEATH(exec(static_cast<MatrixMulDataType>(5), i8, i8, i32, 4096), "");
}

}  // namespace
}  // namespace kern_test
