// Shapes and layouts of tensors: value types with no ownership. At most MAX_NDIM axes exist
// anywhere in the library, axis 0 is the outermost, and strides count elements, not bytes.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "kernels/types/dtype.h"

namespace kern {

class TensorFormat;

struct TensorShape {
    static constexpr size_t MAX_NDIM = 7;

    size_t shape[MAX_NDIM] = {};
    size_t ndim = 0;  // 0: no shape yet

    TensorShape() = default;
    TensorShape(std::initializer_list<size_t> lengths);
    explicit TensorShape(const std::vector<size_t>& lengths);

    size_t& operator[](size_t axis) { return shape[axis]; }
    size_t operator[](size_t axis) const { return shape[axis]; }

    // Product of the axes, 0 when there is no shape; a product that does not fit stops the process.
    size_t element_count() const;
    bool same_shape(const TensorShape& other) const;
    bool has_zero_axis() const;
    // No shape, or no elements.
    bool is_empty() const { return ndim == 0 || has_zero_axis(); }
    std::string to_string() const;  // "{2,3}"
};

// What a layout touches, relative to its first element: [low, high), low at most 0. Offsets are in
// elements and bytes.
struct Span {
    ptrdiff_t low_elem = 0;
    ptrdiff_t low_byte = 0;
    size_t high_elem = 0;
    size_t high_byte = 0;
};

struct TensorLayout : TensorShape {
    ptrdiff_t stride[MAX_NDIM] = {};
    DType dtype;
    const TensorFormat* format;  // shared and immutable, never null

    TensorLayout();
    explicit TensorLayout(DType dtype);
    TensorLayout(DType dtype, const TensorFormat* format);
    // Dense strides for the shape under the format.
    TensorLayout(const TensorShape& shape, DType dtype);
    TensorLayout(const TensorShape& shape, DType dtype, const TensorFormat* format);

    // Dense strides; returns the element count. The second form assigns the shape first.
    size_t fill_strides();
    size_t fill_strides(const TensorShape& shape);

    // Dense under the format. A layout with a zero-length axis is not dense; one without a shape
    // is.
    bool is_dense() const;
    // The default format's test, whatever the format: no padding behind the rows of an image.
    // Loops that walk the memory in order need this.
    bool is_dense_raw() const;
    // Dense once axes of stride 0 are left out.
    bool is_dense_allow_broadcast() const;
    // Magnitudes of strides do not grow towards the last axis.
    bool is_abs_monotonic_allow_broadcast() const;
    // No two index tuples share an element (sufficient test on sorted strides).
    bool is_non_overlapping() const;
    // The same data with as few axes as possible.
    TensorLayout collapsed() const;
    Span span() const;
    // Shape and strides agree; different dtypes stop the process.
    bool same_layout(const TensorLayout& other) const;

    // Views without copying. A view that would need data to move is a reshape failure.
    TensorLayout broadcast_to(const TensorShape& target) const;
    bool try_reshape(TensorLayout& result, const TensorShape& target) const;
    TensorLayout reshape(const TensorShape& target) const;
    TensorLayout permuted(const std::vector<size_t>& order) const;
    TensorLayout remove_axis(size_t axis) const;
    void remove_axis_inplace(size_t axis);
    void insert_axis_inplace(size_t axis, size_t length, ptrdiff_t axis_stride);

    std::string to_string() const;  // "{2(3),3(1)}"
};

// An untyped pointer with a layout: what every kernel receives. Owns nothing.
struct RawTensor {
    void* raw_ptr = nullptr;
    TensorLayout layout;

    RawTensor() = default;
    RawTensor(void* ptr, const TensorLayout& tensor_layout) : raw_ptr(ptr), layout(tensor_layout) {}

    template <typename T>
    T* ptr() const {
        return static_cast<T*>(raw_ptr);
    }
};

}  // namespace kern
