// What stands on convolutions: bias and nonlinearity, and masks.
#include "kernels/operators/conv_bias.h"

#include "kernels/operators/mask_conv.h"
#include "tests/kernels/convolution_test_util.h"

namespace kern_test {
namespace {

double activated(uint32_t nonlinearity, double x) {
    switch (nonlinearity) {
        case 1:
            return std::max(x, 0.0);
        case 2:
            return 1 / (1 + std::exp(-x));
        case 3:
            return std::tanh(x);
        case 4:
            return x * (27 + x * x) / (27 + 9 * x * x);
        case 5:
            return x * std::min(std::max(x + 3, 0.0), 6.0) / 6;
        default:
            return x;
    }
}

TEST(ConvBias, IsAConvolutionABiasAndANonlinearity) {
    std::mt19937 random(1);
    for (int i = 0; i < 12; ++i) {
        const auto problem = random_convolution(random);
        for (const char* name : {"float", "half", "8 to 16"}) {
            const Kind& of = kind(name);
            ConvolutionOperands in(problem, of);
            in.src.fill_integers(random, -2, 2);
            in.filter.fill_integers(random, -1, 1);
            const size_t channels = problem.dst()[1], plane = problem.dst()[2] * problem.dst()[3];
            Tensor bias({1, channels, 1, 1}, of.c);
            bias.fill_integers(random, -3, 3);
            for (kern::HandleLevel level : LEVELS) {
                const auto sums = convolve(level, problem, of, in);
                for (uint32_t mode = 0; mode < (of.c == DType::Int16() ? 2 : 6); ++mode) {
                    SCOPED_TRACE(problem.text() + " " + name + " " + level_name(level) + " " +
                                 std::to_string(mode));
                    kern::ConvBiasParam param{problem.param, kern::Nonlinearity{mode}};
                    param.data_type = of.data_type;
                    const Tensor dst(problem.dst(), of.c);
                    run_operator<kern::ConvBiasForward>(level, param, in.src, in.filter, bias, dst);
                    // NEON divides by a reciprocal of about 16 bits.
                    const double eps = of.c == DType::Float16() ? 1e-3 : 2e-5;
                    for (size_t p = 0; p < dst.layout().element_count(); ++p) {
                        const double sum = sums->get(p) + bias.get(p / plane % channels);
                        const double wanted = activated(mode, sum);
                        ASSERT_NEAR(dst.get(p), wanted,
                                    mode < 2 ? 0 : eps * std::max(1.0, std::abs(wanted)))
                            << sum;
                    }
                }
            }
        }
    }
}

TEST(MaskConv, IsZeroWhereTheMaskIs) {
    std::mt19937 random(2);
    for (int i = 0; i < 10; ++i) {
        const auto problem = random_convolution(random);
        const TensorShape shape = problem.dst();
        for (const char* name : {"float", "8 to 16"}) {
            ConvolutionOperands in(problem, kind(name));
            in.src.fill_integers(random, 1, 100);
            in.filter.fill_integers(random, 1, 100);
            Tensor mask({shape[2], shape[3]}, number_types()[random() % number_types().size()]);
            mask.fill_integers(random, 0, 2);
            for (kern::HandleLevel level : LEVELS) {
                SCOPED_TRACE(problem.text() + " " + name + " " + level_name(level));
                const auto wanted = convolve(level, problem, kind(name), in);
                for (size_t p = 0; p < shape.element_count(); ++p) {
                    if (mask.get(p % mask.layout().element_count()) == 0)
                        wanted->set(p, 0);
                }
                auto param = problem.param;
                param.data_type = kind(name).data_type;
                const Tensor dst(shape, kind(name).c);
                run_operator<kern::MaskConvForward>(level, param, in.src, in.filter, mask, dst);
                ASSERT_EQ(dst.bytes(), wanted->bytes());
            }
        }
    }
}

TEST(MaskPropagate, OutputsAreLiveIfAnyTapIs) {
    std::mt19937 random(3);
    for (int i = 0; i < 60; ++i) {
        auto problem = random_convolution(random);
        const size_t axis = problem.filter.ndim - 2;
        problem.src = {1, 1, problem.src[2], problem.src[3]};
        problem.filter = {1, 1, problem.filter[axis], problem.filter[axis + 1]};
        auto& p = problem.param;
        p.sparse = ConvolutionSparse::DENSE;
        p.mode = ConvolutionMode::CROSS_CORRELATION;
        SCOPED_TRACE(problem.text());
        const auto fh = static_cast<uint32_t>(problem.filter[2]);
        const auto fw = static_cast<uint32_t>(problem.filter[3]);
        const kern::MaskPropagateParam param{p.pad_h, p.pad_w, p.stride_h, p.stride_w,
                                             fh,      fw,      p.dilate_h, p.dilate_w};
        for (DType dtype : number_types()) {
            Tensor src({problem.src[2], problem.src[3]}, dtype);
            src.fill([&] { return random() % 20 == 0 ? 2.0 : 0.0; });
            Tensor wanted(kern::MaskPropagate::deduce_shape(param, src.layout()), dtype);
            wanted.fill([] { return 0; });
            for_each_product(problem, [&](size_t output, size_t element, size_t) {
                if (src.get(element) != 0)
                    wanted.set(output, 1);
            });
            const Tensor dst(wanted.layout());
            run_operator<kern::MaskPropagate>(NAIVE, param, src, dst);
            ASSERT_EQ(dst.bytes(), wanted.bytes());
        }
    }
}

}  // namespace
}  // namespace kern_test
