// Shapes of convolutions, how they are run, and the formula that they must follow.
#pragma once

#include "kernels/operators/convolution_backward.h"
#include "kernels/operators/convolution_forward.h"
#include "tests/kernels/matrix_mul_test_util.h"

namespace kern_test {

using kern::ConvolutionMode;
using kern::ConvolutionSparse;

// Of two spatial axes, or of three.
template <typename Param>
struct ConvolutionProblemOf {
    Param param;
    TensorShape src, filter;

    TensorShape dst() const { return kern::convolved_shape(param, src, filter); }
    std::string text() const {
        std::string text = src.to_string() + " by " + filter.to_string();
        for (const auto& axis : kern::ConvolutionRules(param).axes)
            text += "; pad " + std::to_string(axis.pad) + " stride " + std::to_string(axis.stride) +
                    " dilate " + std::to_string(axis.dilate);
        return text + (param.mode == ConvolutionMode::CONVOLUTION ? "; turned" : "");
    }
};
using ConvolutionProblem = ConvolutionProblemOf<kern::ConvolutionParam>;
using Convolution3DProblem = ConvolutionProblemOf<kern::Convolution3DParam>;

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

// A random one of two axes, and a small depth.
inline Convolution3DProblem random_convolution_3d(std::mt19937& random) {
    const ConvolutionProblem flat = random_convolution(random);
    Convolution3DProblem problem;
    auto& param = problem.param;
    param.mode = flat.param.mode;
    param.sparse = flat.param.sparse;
    param.pad_d = static_cast<uint32_t>(random() % 3);
    param.pad_h = flat.param.pad_h;
    param.pad_w = flat.param.pad_w;
    param.stride_d = static_cast<uint32_t>(1 + random() % 2);
    param.stride_h = flat.param.stride_h;
    param.stride_w = flat.param.stride_w;
    param.dilate_d = static_cast<uint32_t>(1 + random() % 2);
    param.dilate_h = flat.param.dilate_h;
    param.dilate_w = flat.param.dilate_w;
    const size_t depth = 1 + random() % 3;
    const auto with_depth = [](TensorShape shape, size_t length) {
        std::move_backward(shape.shape + shape.ndim - 2, shape.shape + shape.ndim,
                           shape.shape + shape.ndim + 1);
        shape[shape.ndim - 2] = length;
        ++shape.ndim;
        return shape;
    };
    problem.filter = with_depth(flat.filter, depth);
    problem.src = with_depth(flat.src, param.dilate_d * depth + random() % 3);
    return problem;
}

struct ConvolutionOperands {
    Tensor src, filter;
    ConvolutionOperands(const ConvolutionProblem& problem, const Kind& kind)
        : src(problem.src, kind.a), filter(problem.filter, kind.b) {}
};

// With the named algorithm, or the level's choice. The workspace is of just the size that is asked
// for, in memory that ends at an unmapped page, starts anywhere and is full of NaN.
template <typename Operator>
void run_convolution(kern::HandleLevel level, const typename Operator::Param& param,
                     const Tensor& src, const Tensor& filter, const Tensor& dst,
                     const kern::ConvolutionAlgorithm* algorithm = nullptr) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<Operator>();
    op->param() = param;
    op->force_algorithm(algorithm);
    const size_t bytes = op->workspace_in_bytes(src.layout(), filter.layout(), dst.layout());
    const GuardedBuffer workspace(bytes);
    op->exec(src.raw(), filter.raw(), dst.raw(), {workspace.data(), bytes});
}
inline std::unique_ptr<Tensor> convolve(kern::HandleLevel level, const ConvolutionProblem& problem,
                                        const Kind& kind, const ConvolutionOperands& in,
                                        const kern::ConvolutionAlgorithm* algorithm = nullptr) {
    auto dst = std::make_unique<Tensor>(problem.dst(), kind.c);
    auto param = problem.param;
    param.data_type = kind.data_type;
    run_convolution<kern::ConvolutionForward>(level, param, in.src, in.filter, *dst, algorithm);
    return dst;
}

// What a level offers for the problem.
template <typename Operator = kern::ConvolutionForward>
typename Operator::Algorithms algorithms_of(kern::HandleLevel level,
                                            const ConvolutionProblem& problem, const Kind& kind) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<Operator>();
    op->param() = problem.param;
    op->param().data_type = kind.data_type;
    return op->all_algorithms({problem.src, kind.a}, {problem.filter, kind.b},
                              {problem.dst(), kind.c});
}

// `add(output, src element, filter element)` for every product of every output, those of one output
// in the order of the filter's memory. Positions are row-major.
template <typename Param, typename Add>
void for_each_product(const ConvolutionProblemOf<Param>& problem, Add add) {
    const kern::ConvolutionRules rules(problem.param);
    const TensorShape dst_shape = problem.dst(), &src = problem.src, &filter = problem.filter;
    const size_t axes = rules.spatial_ndim, first = filter.ndim - axes;
    const size_t ocpg = filter[first - 2], icpg = filter[first - 1];
    size_t taps = 1;
    for (size_t i = 0; i < axes; ++i)
        taps *= filter[first + i];
    const size_t outputs = dst_shape.element_count() / dst_shape[0] / dst_shape[1];
    for (size_t output = 0; output < dst_shape.element_count(); ++output) {
        const size_t channel = output / outputs % dst_shape[1];
        const size_t image = output / outputs / dst_shape[1];
        for (size_t k = 0; k < icpg * taps; ++k) {
            size_t element = 0, step = 1, place = output, tap = k;
            bool is_inside = true;
            for (size_t i = axes; i-- > 0; step *= src[2 + i]) {
                const auto& axis = rules.axes[3 - axes + i];
                const size_t length = filter[first + i], t = tap % length;
                const bool is_turned = rules.mode == ConvolutionMode::CONVOLUTION;
                // What is before the image wraps to a large number.
                const size_t at = place % dst_shape[2 + i] * axis.stride +
                                  (is_turned ? length - 1 - t : t) * axis.dilate - axis.pad;
                is_inside = is_inside && at < src[2 + i];
                element += at * step;
                place /= dst_shape[2 + i];
                tap /= length;
            }
            if (is_inside)
                add(output, (image * src[1] + channel / ocpg * icpg + tap) * step + element,
                    channel * icpg * taps + k);
        }
    }
}

}  // namespace kern_test
