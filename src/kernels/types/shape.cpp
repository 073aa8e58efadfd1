#include <algorithm>
#include <functional>

#include "kernels/check.h"
#include "kernels/checked_math.h"
#include "kernels/types/layout.h"

namespace kern {
namespace {

template <typename Container>
void assign(TensorShape& shape, const Container& lengths) {
    KERN_CHECK(lengths.size() <= TensorShape::MAX_NDIM);
    for (size_t length : lengths)
        shape.shape[shape.ndim++] = length;
}

}  // namespace

TensorShape::TensorShape(std::initializer_list<size_t> lengths) {
    assign(*this, lengths);
}

TensorShape::TensorShape(const std::vector<size_t>& lengths) {
    assign(*this, lengths);
}

size_t TensorShape::element_count() const {
    if (ndim == 0)
        return 0;
    size_t count = 1;
    for (size_t axis = 0; axis < ndim; ++axis)
        count = checked_mul(count, shape[axis]);
    return count;
}

bool TensorShape::same_shape(const TensorShape& other) const {
    // With a predicate, so that no library call compares these few words.
    return ndim == other.ndim && std::equal(shape, shape + ndim, other.shape, std::equal_to<>());
}

bool TensorShape::has_zero_axis() const {
    return std::find(shape, shape + ndim, size_t{0}) != shape + ndim;
}

std::string TensorShape::to_string() const {
    std::string text = "{";
    for (size_t axis = 0; axis < ndim; ++axis) {
        if (axis > 0)
            text += ",";
        text += std::to_string(shape[axis]);
    }
    return text + "}";
}

}  // namespace kern
