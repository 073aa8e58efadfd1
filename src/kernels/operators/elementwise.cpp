#include "kernels/operators/elementwise.h"

#include <algorithm>
#include <utility>

#include "kernels/check.h"

namespace kern {
namespace {

constexpr ModeTrait MODE_TRAITS[] = {
#define KERN_ELEMENTWISE_MODE(number, NAME, text, arity, commutable, allow_int, allow_float, ...) \
    {arity, commutable, allow_int, allow_float, text},
#include "kernels/operators/elementwise_modes.inc"
#undef KERN_ELEMENTWISE_MODE
};

constexpr ElementwiseMode MODES_IN_ORDER[] = {
#define KERN_ELEMENTWISE_MODE(number, NAME, ...) ElementwiseMode::NAME,
#include "kernels/operators/elementwise_modes.inc"
#undef KERN_ELEMENTWISE_MODE
};

constexpr uint32_t NR_MODES = sizeof(MODE_TRAITS) / sizeof(MODE_TRAITS[0]);

constexpr bool rows_are_in_order() {
    for (uint32_t i = 0; i < NR_MODES; ++i) {
        if (MODES_IN_ORDER[i] != static_cast<ElementwiseMode>(i))
            return false;
    }
    return true;
}
static_assert(rows_are_in_order(), "a mode's number is its row in the table");

// Of x * y + z * w, x and z must have one layout, and y and w too; within a product the factors may
// stand either way round.
void check_fused_pairs(const std::vector<RawTensor>& inputs, const TensorLayout& output) {
    const auto view = [&](size_t i) { return inputs[i].layout.broadcast_to(output); };
    TensorLayout x = view(0), y = view(1), z = view(2), w = view(3);
    if (!x.same_layout(output))
        std::swap(x, y);
    if (!z.same_layout(output))
        std::swap(z, w);
    KERN_CHECK(x.same_layout(z) && y.same_layout(w));
}

}  // namespace

const ModeTrait& ModeTrait::of(ElementwiseMode mode) {
    const auto number = static_cast<uint32_t>(mode);
    KERN_CHECK(number < NR_MODES);
    return MODE_TRAITS[number];
}

uint32_t ModeTrait::count() {
    return NR_MODES;
}

TensorShape Elementwise::deduce_output_shape(const std::vector<TensorShape>& inputs) {
    TensorShape result;
    for (const TensorShape& input : inputs) {
        KERN_CHECK(input.ndim != 0);
        result.ndim = std::max(result.ndim, input.ndim);
    }
    std::fill(result.shape, result.shape + result.ndim, size_t{1});
    for (const TensorShape& input : inputs) {
        for (size_t from_right = 1; from_right <= input.ndim; ++from_right) {
            size_t& length = result[result.ndim - from_right];
            const size_t wanted = input[input.ndim - from_right];
            KERN_CHECK(length == wanted || length == 1 || wanted == 1);
            length = length == 1 ? wanted : length;
        }
    }
    return result;
}

void Elementwise::check_exec(const std::vector<RawTensor>& inputs, const RawTensor& output) const {
    const ModeTrait& trait = ModeTrait::of(m_param.mode);
    KERN_CHECK(inputs.size() == trait.arity);
    const DType dtype = inputs[0].layout.dtype;
    KERN_CHECK(dtype.valid() && trait.accepts(dtype.category()));
    for (const RawTensor& input : inputs)
        KERN_CHECK(input.layout.dtype == dtype);
    // Not empty: a layout with a zero-length axis is not dense.
    KERN_CHECK(output.layout.is_dense() && output.layout.ndim != 0);
    KERN_CHECK(output.layout.dtype == dtype);
    if (m_param.mode == ElementwiseMode::FUSE_MUL_ADD4)
        check_fused_pairs(inputs, output.layout);
}

}  // namespace kern
