// Shapes and kinds of matrix products, how they are run, and what they must give.
#pragma once

#include <algorithm>
#include <cmath>

#include "kernels/operators/matrix_mul.h"
#include "tests/kernels/kernel_test_util.h"

namespace kern_test {

using kern::MatrixMulDataType;

struct Problem {
    size_t rows, columns, depth;
    bool transpose_a, transpose_b;
    size_t padding;  // elements between rows

    TensorLayout layout(size_t height, size_t width, bool transposed, DType dtype) const {
        if (transposed)
            std::swap(height, width);
        return strided({height, width}, {static_cast<ptrdiff_t>(width + padding), 1}, dtype);
    }
    TensorLayout a(DType dtype) const { return layout(rows, depth, transpose_a, dtype); }
    TensorLayout b(DType dtype) const { return layout(depth, columns, transpose_b, dtype); }
    TensorLayout c(DType dtype) const { return layout(rows, columns, false, dtype); }
    size_t a_position(size_t i, size_t k) const {
        return transpose_a ? k * rows + i : i * depth + k;
    }
    size_t b_position(size_t k, size_t j) const {
        return transpose_b ? j * depth + k : k * columns + j;
    }
    std::string text() const {
        return std::to_string(rows) + "x" + std::to_string(depth) + "x" + std::to_string(columns) +
               (transpose_a ? " ta" : "") + (transpose_b ? " tb" : "") + (padding ? " padded" : "");
    }
};

struct Kind {
    const char* name;
    MatrixMulDataType data_type;
    DType a, b, c;
    int a_zero = 0, b_zero = 0;
};

inline const std::vector<Kind>& kinds() {
    const DType f = DType::Float32(), h = DType::Float16(), i8 = DType::Int8();
    const DType s32 = DType::QuantizedS32(1);
    const DType a8 = DType::Quantized8Asymm(0.5f, 3), b8 = DType::Quantized8Asymm(2, 250);
    constexpr auto TO_32 = MatrixMulDataType::INT8_TO_INT32;
    constexpr auto IN_32 = MatrixMulDataType::FLOAT_IO16_CO32;
    static const std::vector<Kind> all = {
        {"float", MatrixMulDataType::DEFAULT, f, f, f},
        {"float in 32", IN_32, f, f, f},
        {"half", MatrixMulDataType::DEFAULT, h, h, h},
        {"half in 32", IN_32, h, h, h},
        {"8 to 16", MatrixMulDataType::INT8_TO_INT16, i8, i8, DType::Int16()},
        {"8 to 32", TO_32, i8, i8, DType::Int32()},
        {"quantised", TO_32, DType::QuantizedS8(0.5f), DType::QuantizedS8(2), s32},
        {"zero points", MatrixMulDataType::ASYMM8_TO_S32, a8, b8, s32, 3, 250},
    };
    return all;
}
inline const Kind& kind(const std::string& name) {
    return *std::find_if(kinds().begin(), kinds().end(),
                         [&](const Kind& item) { return item.name == name; });
}

struct Operands {
    Tensor a, b;
    Operands(const Problem& problem, const Kind& kind)
        : a(problem.a(kind.a)), b(problem.b(kind.b)) {}
};

// Runs the operator in a workspace of just the size it asks for, which ends `misalignment` bytes
// before unmapped memory; nothing around it may change. Epilogues, if any, must all be taken.
inline std::unique_ptr<Tensor> product(
    kern::HandleLevel level, const Problem& problem, const Kind& kind, const Operands& in,
    size_t misalignment = 0, const std::vector<kern::MatrixMul::Epilogue>& operations = {}) {
    auto c = std::make_unique<Tensor>(problem.c(kind.c));
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<kern::MatrixMul>();
    op->param() = {problem.transpose_a, problem.transpose_b, kind.data_type};
    const size_t bytes = op->workspace_in_bytes(in.a.layout(), in.b.layout(), c->layout());
    const GuardedBuffer memory(bytes + 16);
    uint8_t* workspace = memory.data() + 16 - misalignment;
    EXPECT_EQ(op->nr_foldable(in.a.layout(), c->layout(), operations), operations.size());
    op->exec_folded(in.a.raw(), in.b.raw(), c->raw(), operations, {workspace, bytes});
    const auto untouched = [](uint8_t byte) { return byte == 0xff; };
    EXPECT_TRUE(std::all_of(memory.data(), workspace, untouched));
    EXPECT_TRUE(std::all_of(workspace + bytes, memory.data() + bytes + 16, untouched));
    return c;
}

// The whole product, one pair of lines at a time and in the order in which the level adds: so a
// pair has the same bits alone and in any batch. What lies between the rows is never written.
class Reference {
public:
    Reference(const Problem& problem, const Kind& kind, const Operands& in)
        : m_problem(problem), m_kind(kind), m_a(problem.rows * problem.depth) {
        m_b.resize(problem.columns * problem.depth);
        for (size_t k = 0; k < problem.depth; ++k) {
            for (size_t i = 0; i < problem.rows; ++i)
                m_a[i * problem.depth + k] = in.a.get(problem.a_position(i, k)) - kind.a_zero;
            for (size_t j = 0; j < problem.columns; ++j)
                m_b[j * problem.depth + k] = in.b.get(problem.b_position(k, j)) - kind.b_zero;
        }
    }
    std::unique_ptr<Tensor> of(kern::HandleLevel level) const {
        const bool is_float = m_kind.c == DType::Float32();
        const bool in_partials = (level == X86_AVX2 || level == X86_AVX512) &&
                                 m_kind.data_type == MatrixMulDataType::DEFAULT;
        const bool by_rows =
            !m_problem.transpose_a && !m_problem.transpose_b && m_problem.rows <= 2;
        const bool wraps =
            level == ARMV7 && !by_rows && m_kind.data_type == MatrixMulDataType::INT8_TO_INT32;
        auto c = std::make_unique<Tensor>(m_problem.c(m_kind.c));
        for (size_t i = 0; i < m_problem.rows; ++i)
            for (size_t j = 0; j < m_problem.columns; ++j) {
                const double* a = m_a.data() + i * m_problem.depth;
                const double* b = m_b.data() + j * m_problem.depth;
                c->set(i * m_problem.columns + j,
                       is_float ? static_cast<double>(float_sum(a, b, in_partials))
                                : exact_sum(a, b, wraps));
            }
        return c;
    }

private:
    float float_sum(const double* a, const double* b, bool in_partials) const {
        float partials[16] = {};
        for (size_t k = 0; k < m_problem.depth; ++k) {
            const auto x = static_cast<float>(a[k]), y = static_cast<float>(b[k]);
            float& partial = partials[in_partials ? k % 16 : 0];
            partial = in_partials ? std::fma(x, y, partial) : partial + x * y;
        }
        for (size_t width = 8; in_partials && width > 0; width /= 2)
            for (size_t l = 0; l < width; ++l)
                partials[l] += partials[l + width];
        return partials[0];
    }
    // The armv7 level adds two products of bytes in 16 bits: where both operands hold -128 at
    // positions k and k + 8 of a step of 16, it wraps.
    double exact_sum(const double* a, const double* b, bool wraps) const {
        double sum = 0;
        for (size_t k = 0; k < m_problem.depth; ++k) {
            sum += a[k] * b[k];
            if (wraps && k % 16 < 8 && k + 8 < m_problem.depth &&
                a[k] * b[k] + a[k + 8] * b[k + 8] == 32768)
                sum -= 65536;
        }
        return sum;
    }

    Problem m_problem;
    Kind m_kind;
    std::vector<double> m_a, m_b;  // lines along k, zero points subtracted
};

// Equal bits, gaps between rows included, but any NaN for another.
inline void expect_same_product(const Tensor& got, const Tensor& wanted, const std::string& text) {
    const bool is_float = wanted.layout().dtype == DType::Float32();
    for (size_t i = 0; is_float && i < wanted.layout().element_count(); ++i) {
        if (std::isnan(got.at<float>(i)) && std::isnan(wanted.at<float>(i)))
            got.at<float>(i) = wanted.at<float>(i);
    }
    if (got.bytes() == wanted.bytes())
        return;
    for (size_t i = 0; i < wanted.layout().element_count(); ++i)
        ASSERT_EQ(got.get(i), wanted.get(i)) << text << " at " << i;
    FAIL() << text << ": signs of zeros, or memory between the rows";
}

}  // namespace kern_test
