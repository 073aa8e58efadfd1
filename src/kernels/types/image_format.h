// Tensors stored as two-dimensional images: the axes from `align_axis` on make up one row, the axes
// before it count rows, and each row starts on an alignment. Formats are immutable, interned and
// never freed; any thread may make and read them.
#pragma once

#include <cstddef>
#include <string>

#include "kernels/types/format.h"

namespace kern {

// Operations that need a layout to be an image stop the process on one that is not (assert_valid),
// and all of them on a low-bit dtype, whose rows could not be addressed in bytes.
class Image2DFormat : public TensorFormat {
public:
    size_t align_axis() const { return m_align_axis; }
    size_t align_size_log2() const { return m_align_size_log2; }

    // Stops the process unless `align_axis` is an axis, no length is zero, no stride is negative
    // and the stride of the axis before it, 0 for a broadcast, is a multiple of the alignment.
    virtual void assert_valid(const TensorLayout& layout) const;
    // The format of the same alignment on another axis.
    virtual const Image2DFormat* with_axis(size_t new_axis) const = 0;

    // The element count that this returns includes the padding behind each row.
    size_t fill_strides(TensorLayout& layout) const final;
    // A pitch larger than needed is dense too, if it is a multiple of the alignment.
    bool is_dense(const TensorLayout& layout) const final;
    // Keeps at least one axis of rows and one axis inside the row.
    TensorLayout collapsed(const TensorLayout& layout) const final;
    // Whole rows, the padding behind the last one included.
    Span span(const TensorLayout& layout) const final;
    std::string to_string() const final;  // "I2D{<align_axis>,<alignment in bytes>}"
    void serialize_append(std::string& text) const final;

protected:
    Image2DFormat(size_t align_axis, size_t align_size_log2)
        : TensorFormat(Type::IMAGE), m_align_axis(align_axis), m_align_size_log2(align_size_log2) {}

private:
    // The alignment of a row in elements of the dtype.
    size_t align_elems(DType dtype) const;

    size_t m_align_axis;
    size_t m_align_size_log2;
};

// Images whose pixels hold four elements: the last axis's length is a multiple of 4.
class Image2DPack4Format final : public Image2DFormat {
public:
    void assert_valid(const TensorLayout& layout) const override;
    const Image2DFormat* with_axis(size_t new_axis) const override;

private:
    Image2DPack4Format(size_t align_axis, size_t align_size_log2)
        : Image2DFormat(align_axis, align_size_log2) {}
    friend const Image2DPack4Format* image_pack4_format(size_t align_axis, size_t align_bytes);
};

// One object for each pair. An axis of 0 stops the process, as does an alignment that is no power
// of two.
const Image2DPack4Format* image_pack4_format(size_t align_axis, size_t align_bytes);

}  // namespace kern
