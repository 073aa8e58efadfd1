// Naive convolutions in all directions against the formula; backwards, every algorithm of every
// level against naive.
#include "kernels/operators/convolution_backward.h"

#include "tests/kernels/convolution_test_util.h"

namespace kern_test {
namespace {

using kern::ConvolutionBackwardData;
using kern::ConvolutionBackwardFilter;
using kern::ConvolutionOperand;

// The operands of an operator: the written one has the kind's third dtype, the others the first
// two.
struct Operands3 {
    Tensor src, filter, dst;

    template <typename Param>
    Operands3(const ConvolutionProblemOf<Param>& problem, const Kind& kind, ConvolutionOperand out)
        : src(problem.src, out == ConvolutionOperand::SRC ? kind.c : kind.a),
          filter(problem.filter, out == ConvolutionOperand::FILTER ? kind.c
                                 : out == ConvolutionOperand::DST  ? kind.b
                                                                   : kind.a),
          dst(problem.dst(), out == ConvolutionOperand::DST ? kind.c : kind.b) {}
    Operands3& fill_integers(std::mt19937& random, int low, int high) {
        for (Tensor* tensor : {&src, &filter, &dst})
            tensor->fill_integers(random, low, high);
        return *this;
    }
    const Tensor& of(ConvolutionOperand operand) const {
        return operand == ConvolutionOperand::SRC      ? src
               : operand == ConvolutionOperand::FILTER ? filter
                                                       : dst;
    }
};

template <typename Operator, typename Problem>
void expect_formula(const Problem& problem, const Kind& kind, std::mt19937& random) {
    constexpr ConvolutionOperand OUT = Operator::WRITTEN;
    SCOPED_TRACE(problem.text() + " " + kind.name);
    const int largest = kind.a == DType::Float16() ? 3 : 127;  // sums that fit
    Operands3 in(problem, kind, OUT);
    in.fill_integers(random, kind.a_zero ? 0 : -largest, largest);
    const double src_zero = kind.a_zero, dst_zero = kind.b_zero;
    const double filter_zero = OUT == ConvolutionOperand::SRC ? kind.a_zero : kind.b_zero;
    Tensor expected(in.of(OUT).layout());
    std::vector<double> sums(expected.layout().element_count());
    for_each_product(problem, [&](size_t o, size_t s, size_t f) {
        if (OUT == ConvolutionOperand::SRC)
            sums[s] += (in.filter.get(f) - filter_zero) * (in.dst.get(o) - dst_zero);
        else if (OUT == ConvolutionOperand::FILTER)
            sums[f] += (in.src.get(s) - src_zero) * (in.dst.get(o) - dst_zero);
        else
            sums[o] += (in.src.get(s) - src_zero) * (in.filter.get(f) - filter_zero);
    });
    expected.fill_with(sums);
    auto param = problem.param;
    param.data_type = kind.data_type;
    run_convolution<Operator>(NAIVE, param, in.src, in.filter, in.dst);
    ASSERT_EQ(in.of(OUT).bytes(), expected.bytes());
}

TEST(ConvolutionLoops, FollowTheFormula) {
    std::mt19937 random(1);
    for (size_t i = 0; i < 32; ++i) {
        const Kind& kind = kinds()[i % kinds().size()];
        const auto problem = random_convolution(random);
        expect_formula<kern::ConvolutionForward>(problem, kind, random);
        expect_formula<ConvolutionBackwardData>(problem, kind, random);
        expect_formula<ConvolutionBackwardFilter>(problem, kind, random);
    }
}

TEST(ConvolutionLoops, FollowTheFormulaOfThreeAxes) {
    std::mt19937 random(2);
    for (size_t i = 0; i < 8; ++i) {
        const Kind& kind = kinds()[i % kinds().size()];
        const auto problem = random_convolution_3d(random);
        expect_formula<kern::Convolution3DForward>(problem, kind, random);
        expect_formula<kern::Convolution3DBackwardData>(problem, kind, random);
        expect_formula<kern::Convolution3DBackwardFilter>(problem, kind, random);
    }
}

double inner_product(const Tensor& a, const Tensor& b) {
    double sum = 0;
    for (size_t i = 0; i < a.layout().element_count(); ++i)
        sum += a.get(i) * b.get(i);
    return sum;
}

// <conv(x, w), y> = <x, data(w, y)> = <w, filter(x, y)>, exact on integers.
TEST(ConvolutionBackward, IsTheTransposeAtEveryLevel) {
    std::mt19937 random(3);
    for (int i = 0; i < 20; ++i) {
        const auto problem = random_convolution(random);
        for (kern::HandleLevel level : LEVELS) {
            SCOPED_TRACE(problem.text() + " " + level_name(level));
            const Kind& floats = kind("float");
            Operands3 in(problem, floats, ConvolutionOperand::DST);
            Operands3 out(problem, floats, ConvolutionOperand::DST);
            in.fill_integers(random, -8, 8);
            run_convolution<kern::ConvolutionForward>(level, problem.param, in.src, in.filter,
                                                      out.dst);
            run_convolution<ConvolutionBackwardData>(level, problem.param, out.src, in.filter,
                                                     in.dst);
            run_convolution<ConvolutionBackwardFilter>(level, problem.param, in.src, out.filter,
                                                       in.dst);
            const double product = inner_product(out.dst, in.dst);
            EXPECT_EQ(inner_product(in.src, out.src), product);
            EXPECT_EQ(inner_product(in.filter, out.filter), product);
        }
    }
}

ConvolutionBackwardData::Algorithms algorithms_of_data(kern::HandleLevel level,
                                                       const ConvolutionProblem& problem,
                                                       const Kind& kind) {
    return algorithms_of<ConvolutionBackwardData>(
        level, problem, {kind.name, kind.data_type, kind.c, kind.a, kind.b});
}

TEST(ConvolutionBackward, EveryAlgorithmOfDataEqualsNaive) {
    std::mt19937 random(4);
    for (int i = 0; i < some_of(60); ++i) {
        const auto problem = random_convolution(random);
        for (const char* name : {"float", "half", "8 to 16"}) {
            Operands3 in(problem, kind(name), ConvolutionOperand::SRC);
            in.fill_integers(random, -16, 16);
            const Tensor expected(in.src.layout());
            auto param = problem.param;
            param.data_type = kind(name).data_type;
            const auto run = [&](kern::HandleLevel level, const Tensor& src,
                                 const auto* algorithm) {
                run_convolution<ConvolutionBackwardData>(level, param, src, in.filter, in.dst,
                                                         algorithm);
            };
            const kern::ConvolutionAlgorithm* const chosen = nullptr;
            run(NAIVE, expected, chosen);
            for (kern::HandleLevel level : LEVELS) {
                for (const auto* algorithm : algorithms_of_data(level, problem, kind(name))) {
                    SCOPED_TRACE(problem.text() + " " + name + " " + level_name(level) + " " +
                                 algorithm->name);
                    run_convolution<ConvolutionBackwardData>(level, param, in.src, in.filter,
                                                             in.dst, algorithm);
                    ASSERT_EQ(in.src.bytes(), expected.bytes());
                }
            }
        }
    }
}

TEST(ConvolutionBackward, AlgorithmsOfData) {
    ConvolutionProblem problem{{}, {2, 4, 9, 9}, {3, 4, 3, 3}};
    ConvolutionProblem groups{{}, {2, 4, 9, 9}, {2, 3, 2, 3, 3}};
    groups.param.sparse = ConvolutionSparse::GROUP;
    ConvolutionProblem dilated = problem;
    dilated.param.dilate_w = 2;
    for (kern::HandleLevel level : LEVELS) {
        const auto names = [&](const ConvolutionProblem& p, const char* name) {
            std::string list;
            for (const auto* algorithm : algorithms_of_data(level, p, kind(name)))
                list += std::string(list.empty() ? "" : " ") + algorithm->name;
            return list;
        };
        const std::string last = level == NAIVE ? "DEFAULT" : "NCBD";
        const std::string all =
            level == NAIVE || level == FALLBACK ? last : "DeconvMatmul DeconvDirect NCBD";
        EXPECT_EQ(names(problem, "float"), all) << level_name(level);
        EXPECT_EQ(names(groups, "float"), all) << level_name(level);
        EXPECT_EQ(names(dilated, "float"), last) << level_name(level);
        EXPECT_EQ(names(problem, "8 to 16"), last) << level_name(level);
        EXPECT_EQ(names(problem, "half in 32"), "DEFAULT") << level_name(level);
        const auto handle = make_handle(level);
        const auto op = handle->create_operator<ConvolutionBackwardData>();
        EXPECT_STREQ(op->algorithm_set_name(),
                     level == NAIVE ? "DEFAULT" : "FALLBACK_CONVOLUTION_BACKWARD_DATA_IMPL0");
        const DType f = DType::Float32();
        const auto* small =
            op->heuristic_algorithm({problem.src, f}, {problem.filter, f}, {problem.dst(), f}, 0);
        EXPECT_STREQ(small->name, all == last ? last.c_str() : "DeconvDirect");
    }
}

TEST(ConvolutionBackward, DeducesTheSmallestImages) {
    std::mt19937 random(5);
    for (int i = 0; i < 50; ++i) {
        auto problem = random_convolution(random);
        const TensorShape dst = problem.dst();
        problem.src = ConvolutionBackwardData::deduce_shape(problem.param, problem.filter, dst);
        SCOPED_TRACE(problem.text());
        ASSERT_TRUE(problem.dst().same_shape(dst));
        for (size_t axis : {2u, 3u}) {
            ConvolutionProblem smaller = problem;
            if (smaller.src[axis]-- == 0)
                continue;
            const ThrowingChecks checks;
            try {
                EXPECT_FALSE(smaller.dst().same_shape(dst));
            } catch (const Refused&) {  // smaller than the filter
            }
        }
    }
}

}  // namespace
}  // namespace kern_test
