#include "kernels/arm_common/elementwise_plan.h"

#include <algorithm>
#include <initializer_list>
#include <optional>

#include "kernels/types/image_format.h"

namespace kern::arm_common {
namespace {

bool has_strides(const TensorLayout& view, std::initializer_list<ptrdiff_t> wanted) {
    return view.format->is_default() && view.ndim == wanted.size() &&
           std::equal(wanted.begin(), wanted.end(), view.stride);
}

// Four values, one for each lane of an image's pixels, the same in all pixels.
bool is_pixel(const TensorLayout& view) {
    if (view.format->type() != TensorFormat::Type::IMAGE || view.ndim < 3 || view.ndim > 4 ||
        static_cast<const Image2DFormat*>(view.format)->align_axis() != 1)
        return false;
    const size_t last = view.ndim - 1;
    for (size_t axis = 0; axis < last; ++axis) {
        if (view.stride[axis] != 0)
            return false;
    }
    return view.shape[last] == 4 && view.stride[last] == 1;
}

// A value per channel; nothing for other views.
std::optional<VectorPlan> plan_channels(const TensorLayout& view, size_t element_count) {
    VectorPlan plan;
    if (has_strides(view, {0, 1, 0})) {
        plan.outer = view.shape[0];
        plan.channels = view.shape[1];
        plan.inner = view.shape[2];
    } else if (has_strides(view, {1, 0})) {
        plan.channels = view.shape[0];
        plan.inner = view.shape[1];
    } else if (is_pixel(view)) {
        plan.inner = element_count;
        plan.period = 4;
    } else {
        return std::nullopt;
    }
    return plan;
}

VectorPlan with_form(VectorPlan plan, VectorForm form) {
    plan.form = form;
    return plan;
}

VectorPlan plan_binary(bool commutable, const BroadcastSet& set) {
    const TensorLayout& x = set.views[0].layout;
    const TensorLayout& y = set.views[1].layout;
    const bool x_dense = x.is_dense_raw(), y_dense = y.is_dense_raw();
    VectorPlan whole;
    whole.inner = set.element_count;
    if (x_dense && y_dense)
        return with_form(whole, VectorForm::DENSE_DENSE);
    if (x_dense && is_scalar(y))
        return with_form(whole, VectorForm::DENSE_SCALAR);
    if (commutable && y_dense && is_scalar(x))
        return with_form(whole, VectorForm::SCALAR_DENSE);
    if (x_dense) {
        if (const auto plan = plan_channels(y, set.element_count))
            return with_form(*plan, VectorForm::DENSE_CHANNEL);
    }
    if (commutable && y_dense) {
        if (const auto plan = plan_channels(x, set.element_count))
            return with_form(*plan, VectorForm::CHANNEL_DENSE);
    }
    // A row costs nothing more: its segments are the loop of two dense inputs.
    const TensorLayout& row = x_dense ? y : x;
    if ((x_dense || y_dense) && has_strides(row, {0, 1})) {
        VectorPlan rows;
        rows.outer = row.shape[0];
        rows.inner = row.shape[1];
        return with_form(rows, x_dense ? VectorForm::DENSE_ROW : VectorForm::ROW_DENSE);
    }
    return {};
}

}  // namespace

unsigned vector_types(ElementwiseMode mode) {
    switch (mode) {
#define KERN_VECTOR_MODE(NAME, types, ...) \
    case ElementwiseMode::NAME:            \
        return types;
#include "kernels/arm_common/elementwise_vector_modes.inc"
#undef KERN_VECTOR_MODE
        default:
            return 0;
    }
}

unsigned vector_type(DTypeEnum dtype) {
    switch (dtype) {
        case DTypeEnum::FLOAT32:
            return FLOAT32;
        case DTypeEnum::INT32:
            return INT32;
        case DTypeEnum::INT16:
            return INT16;
        case DTypeEnum::INT8:
            return INT8;
        default:
            return 0;
    }
}

bool is_scalar(const TensorLayout& view) {
    for (size_t axis = 0; axis < view.ndim; ++axis) {
        if (view.shape[axis] != 1 && view.stride[axis] != 0)
            return false;
    }
    return view.format->is_default();
}

VectorPlan plan_vector_form(ElementwiseMode mode, DTypeEnum dtype, const BroadcastSet& set) {
    if ((vector_types(mode) & vector_type(dtype)) == 0)
        return {};
    const ModeTrait& trait = ModeTrait::of(mode);
    if (trait.arity == 2)
        return plan_binary(trait.commutable, set);

    VectorPlan whole;
    whole.inner = set.element_count;
    const auto dense = [&](size_t i) { return set.views[i].layout.is_dense_raw(); };
    if (trait.arity == 1)
        return dense(0) ? with_form(whole, VectorForm::UNARY) : VectorPlan{};
    const auto dense_or_scalar = [&](size_t i) {
        return dense(i) || is_scalar(set.views[i].layout);
    };
    const bool fits = dense_or_scalar(0) && dense_or_scalar(1) && dense(2);
    return fits ? with_form(whole, VectorForm::MUL_ADD) : VectorPlan{};
}

}  // namespace kern::arm_common
