// Shapes of convolutions, how they are run, and the formula that they must follow.
#pragma once

#include "kernels/operators/convolution_forward.h"
#include "tests/kernels/matrix_mul_test_util.h"

namespace kern_test {

using kern::ConvolutionMode;
using kern::ConvolutionSparse;

struct ConvolutionProblem {
    kern::ConvolutionParam param;
    TensorShape src, filter;

    TensorShape dst() const { return kern::convolved_shape(param, src, filter); }
    std::string text() const {
        return src.to_string() + " by " + filter.to_string() + " pad " +
               std::to_string(param.pad_h) + "," + std::to_string(param.pad_w) + " stride " +
               std::to_string(param.stride_h) + "," + std::to_string(param.stride_w) + " dilate " +
               std::to_string(param.dilate_h) + "," + std::to_string(param.dilate_w) +
               (param.mode == ConvolutionMode::CONVOLUTION ? " turned" : "");
    }
};

// Shapes that fit each other: small, with whatever else a convolution can have.
inline ConvolutionProblem random_convolution(std::mt19937& random) {
    const auto any = [&](size_t low, size_t high) { return low + random() % (high - low + 1); };
    const auto some = [&](size_t usual, size_t high) {
        return random() % 2 ? usual : any(1, high);
    };
    ConvolutionProblem problem;
    auto& param = problem.param;
    const size_t groups = random() % 3 == 0 ? any(1, 3) : 1, fh = any(1, 7);
    const size_t fw = random() % 2 ? fh : any(1, 7), icpg = any(1, 9), ocpg = any(1, 9);
    param.mode = static_cast<ConvolutionMode>(random() % 4 == 0);
    param.sparse = groups > 1 ? ConvolutionSparse::GROUP : ConvolutionSparse::DENSE;
    param.pad_h = static_cast<uint32_t>(any(0, fh));
    param.pad_w = random() % 2 ? param.pad_h : static_cast<uint32_t>(any(0, 3));
    param.stride_h = static_cast<uint32_t>(some(1, 3));
    param.stride_w = random() % 2 ? param.stride_h : static_cast<uint32_t>(any(1, 3));
    param.dilate_h = random() % 4 == 0 ? 2 : 1;
    param.dilate_w = random() % 4 == 0 ? 2 : 1;
    problem.src = {any(1, 3), groups * icpg, param.dilate_h * fh + any(0, 12),
                   param.dilate_w * fw + any(0, 20)};
    problem.filter = {ocpg, icpg, fh, fw};
    if (groups > 1)
        problem.filter = {groups, ocpg, icpg, fh, fw};
    return problem;
}

struct ConvolutionOperands {
    Tensor src, filter;
    ConvolutionOperands(const ConvolutionProblem& problem, const Kind& kind)
        : src(problem.src, kind.a), filter(problem.filter, kind.b) {}
};

// With the named algorithm, or the level's choice. The workspace is of just the size that is asked
// for, in memory that ends at an unmapped page, starts anywhere and is full of NaN.
inline std::unique_ptr<Tensor> convolve(kern::HandleLevel level, const ConvolutionProblem& problem,
                                        const Kind& kind, const ConvolutionOperands& in,
                                        const kern::ConvolutionAlgorithm* algorithm = nullptr) {
    auto dst = std::make_unique<Tensor>(problem.dst(), kind.c);
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<kern::ConvolutionForward>();
    op->param() = problem.param;
    op->param().data_type = kind.data_type;
    op->force_algorithm(algorithm);
    const size_t bytes = op->workspace_in_bytes(in.src.layout(), in.filter.layout(), dst->layout());
    const GuardedBuffer workspace(bytes);
    op->exec(in.src.raw(), in.filter.raw(), dst->raw(), {workspace.data(), bytes});
    return dst;
}

// What a level offers for the problem.
inline kern::ConvolutionForward::Algorithms algorithms_of(kern::HandleLevel level,
                                                          const ConvolutionProblem& problem,
                                                          const Kind& kind) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<kern::ConvolutionForward>();
    op->param() = problem.param;
    op->param().data_type = kind.data_type;
    return op->all_algorithms({problem.src, kind.a}, {problem.filter, kind.b},
                              {problem.dst(), kind.c});
}

// `add(output, src value, filter value)` for every product of every output, those of one output in
// the order of the filter's memory. Positions are row-major.
template <typename Add>
void for_each_product(const ConvolutionProblem& problem, Add add) {
    const auto& param = problem.param;
    const size_t axis = problem.filter.ndim - 4;
    const size_t ocpg = problem.filter[axis], icpg = problem.filter[axis + 1];
    const size_t fh = problem.filter[axis + 2], fw = problem.filter[axis + 3];
    const TensorShape dst = problem.dst();
    const auto element = [&](size_t output, size_t stride, size_t pad, size_t dilate, size_t tap,
                             size_t taps) {
        if (param.mode == ConvolutionMode::CONVOLUTION)
            tap = taps - 1 - tap;
        return static_cast<ptrdiff_t>(output * stride + tap * dilate) - static_cast<ptrdiff_t>(pad);
    };
    for (size_t output = 0; output < dst.element_count(); ++output) {
        const size_t x = output % dst[3], y = output / dst[3] % dst[2];
        const size_t channel = output / dst[3] / dst[2] % dst[1];
        const size_t image = output / dst[3] / dst[2] / dst[1];
        for (size_t k = 0; k < icpg * fh * fw; ++k) {
            const size_t c = channel / ocpg * icpg + k / (fh * fw);
            const ptrdiff_t row =
                element(y, param.stride_h, param.pad_h, param.dilate_h, k / fw % fh, fh);
            const ptrdiff_t column =
                element(x, param.stride_w, param.pad_w, param.dilate_w, k % fw, fw);
            if (row < 0 || column < 0 || row >= static_cast<ptrdiff_t>(problem.src[2]) ||
                column >= static_cast<ptrdiff_t>(problem.src[3]))
                continue;
            add(output,
                ((image * problem.src[1] + c) * problem.src[2] + static_cast<size_t>(row)) *
                        problem.src[3] +
                    static_cast<size_t>(column),
                channel * icpg * fh * fw + k);
        }
    }
}

}  // namespace kern_test
