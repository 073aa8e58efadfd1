#include "kernels/types/format.h"

#include <cstring>

#include "kernels/check.h"
#include "kernels/checked_math.h"
#include "kernels/handle.h"
#include "kernels/types/image_format.h"

namespace kern {
namespace {

class DefaultFormat final : public TensorFormat {
public:
    DefaultFormat() : TensorFormat(Type::DEFAULT) {}

    size_t fill_strides(TensorLayout& layout) const override {
        return fill_dense_strides(layout, 0, 1);
    }

    bool is_dense(const TensorLayout& layout) const override { return layout.is_dense_raw(); }

    TensorLayout collapsed(const TensorLayout& layout) const override {
        KERN_CHECK(layout.ndim != 0);
        TensorLayout result = layout;
        for (size_t axis = result.ndim; axis-- > 0 && result.ndim > 1;) {
            if (result.shape[axis] == 0) {
                result.ndim = 1;
                result.shape[0] = 0;
            } else if (result.shape[axis] == 1) {
                result.remove_axis_inplace(axis);
            }
        }
        if (result.ndim == 1) {
            if (result.shape[0] <= 1)
                result.stride[0] = 1;
        } else {
            merge_axes(result, 0, result.ndim);
        }
        return result;
    }

    Span span(const TensorLayout& layout) const override {
        Span result;
        if (layout.is_empty())
            return result;
        result.high_elem = 1;
        for (size_t axis = 0; axis < layout.ndim; ++axis) {
            const ptrdiff_t reach =
                checked_mul(layout.stride[axis], checked_stride(layout.shape[axis] - 1));
            if (reach > 0)
                result.high_elem = checked_add(result.high_elem, static_cast<size_t>(reach));
            else
                result.low_elem = checked_add(result.low_elem, reach);
        }
        result.high_byte = layout.dtype.byte_size(result.high_elem);
        if (layout.dtype.is_low_bit())
            KERN_CHECK(result.low_elem == 0);
        else
            result.low_byte =
                checked_mul(result.low_elem, checked_stride(layout.dtype.element_bytes()));
        return result;
    }

    std::string to_string() const override { return "default{}"; }
    void serialize_append(std::string&) const override {}
};

}  // namespace

std::string TensorFormat::serialize() const {
    const auto type_word = static_cast<uint32_t>(m_type);
    std::string text(reinterpret_cast<const char*>(&type_word), sizeof(type_word));
    serialize_append(text);
    return text;
}

size_t TensorFormat::fill_dense_strides(TensorLayout& layout, size_t row_axis, size_t row_unit) {
    if (layout.ndim == 0)
        return 0;
    KERN_CHECK(layout.ndim <= TensorShape::MAX_NDIM);
    size_t product = 1;
    for (size_t axis = layout.ndim; axis-- > 0;) {
        layout.stride[axis] = checked_stride(product);
        product = checked_mul(product, layout.shape[axis]);
        if (axis == row_axis)
            product = round_up(product, row_unit);
    }
    return product;
}

size_t TensorFormat::merge_axes(TensorLayout& layout, size_t first, size_t end) {
    const size_t ndim = layout.ndim;
    for (size_t axis = end - 1; axis-- > first;) {
        const ptrdiff_t inner = layout.stride[axis + 1];
        if (layout.stride[axis] != checked_mul(inner, checked_stride(layout.shape[axis + 1])))
            continue;
        layout.shape[axis] = checked_mul(layout.shape[axis], layout.shape[axis + 1]);
        layout.stride[axis] = inner;
        layout.remove_axis_inplace(axis + 1);
    }
    return ndim - layout.ndim;
}

const TensorFormat* default_format() {
    static const auto* format = new DefaultFormat();  // outlives every static destructor
    return format;
}

const TensorFormat* deserialize_format(const std::string& bytes, const KernelHandle* handle) {
    uint32_t type_word = 0;
    KERN_CHECK(bytes.size() >= sizeof(type_word));
    std::memcpy(&type_word, bytes.data(), sizeof(type_word));
    const std::string payload = bytes.substr(sizeof(type_word));
    switch (static_cast<TensorFormat::Type>(type_word)) {
        case TensorFormat::Type::DEFAULT:
            KERN_CHECK(payload.empty());
            return default_format();
        case TensorFormat::Type::IMAGE:
            KERN_CHECK(payload.size() == 1 && handle);
            return image_pack4_format(static_cast<uint8_t>(payload[0]),
                                      handle->image_pitch_alignment());
        default:
            KERN_FAIL();
    }
}

}  // namespace kern
