#include "kernels/format.h"

#include <cstring>

#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace kern {
namespace {

// Merges neighbouring axes whose strides continue each other; at least two axes are left.
void merge_axes(TensorLayout& layout) {
    for (size_t axis = layout.ndim - 1; axis-- > 0;) {
        const ptrdiff_t inner = layout.stride[axis + 1];
        if (layout.stride[axis] != inner * static_cast<ptrdiff_t>(layout.shape[axis + 1]))
            continue;
        layout.shape[axis] = checked_mul(layout.shape[axis], layout.shape[axis + 1]);
        layout.stride[axis] = inner;
        layout.remove_axis_inplace(axis + 1);
    }
}

class DefaultFormat final : public TensorFormat {
public:
    DefaultFormat() : TensorFormat(Type::DEFAULT) {}

    size_t fill_strides(TensorLayout& layout) const override {
        if (layout.ndim == 0)
            return 0;
        KERN_CHECK(layout.ndim <= TensorShape::MAX_NDIM);
        size_t product = 1;
        for (size_t axis = layout.ndim; axis-- > 0;) {
            KERN_CHECK(product <= static_cast<size_t>(PTRDIFF_MAX));
            layout.stride[axis] = static_cast<ptrdiff_t>(product);
            product = checked_mul(product, layout.shape[axis]);
        }
        return product;
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
            merge_axes(result);
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
                layout.stride[axis] * static_cast<ptrdiff_t>(layout.shape[axis] - 1);
            if (reach > 0)
                result.high_elem = checked_add(result.high_elem, static_cast<size_t>(reach));
            else
                result.low_elem += reach;
        }
        result.high_byte = layout.dtype.byte_size(result.high_elem);
        if (layout.dtype.is_low_bit())
            KERN_CHECK(result.low_elem == 0);
        else
            result.low_byte =
                result.low_elem * static_cast<ptrdiff_t>(layout.dtype.element_bytes());
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

const TensorFormat* default_format() {
    static const auto* format = new DefaultFormat();  // outlives every static destructor
    return format;
}

const TensorFormat* deserialize_format(const std::string& bytes, const KernelHandle*) {
    uint32_t type_word = 0;
    KERN_CHECK(bytes.size() >= sizeof(type_word));
    std::memcpy(&type_word, bytes.data(), sizeof(type_word));
    KERN_CHECK(type_word == static_cast<uint32_t>(TensorFormat::Type::DEFAULT));
    KERN_CHECK(bytes.size() == sizeof(type_word));
    return default_format();
}

}  // namespace kern
