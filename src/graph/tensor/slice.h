// Descriptions of parts of a tensor.
#pragma once

#include <cstddef>
#include <optional>

#include "kernels/types/layout.h"

namespace orb {

// A layout with the element offset of its first element in the tensor that it is a part of.
class SubTensorRegion {
public:
    // Needs a layout with a shape and a dtype.
    SubTensorRegion(const kern::TensorLayout& layout, ptrdiff_t offset_elem);

    const kern::TensorLayout& layout() const { return m_layout; }
    ptrdiff_t offset_elem() const { return m_offset_elem; }
    ptrdiff_t offset_byte() const;
    // The second region is a part of the first.
    SubTensorRegion operator+(const SubTensorRegion& inner) const;

private:
    kern::TensorLayout m_layout;
    ptrdiff_t m_offset_elem;
};

// Elements begin, begin + step, ... before end of one axis; absent fields take the whole axis,
// negative positions count from its end. A negative step walks backwards from `begin`, by default
// the last element, and an absent end then means before the first element.
struct TensorSlice {
    std::optional<ptrdiff_t> begin;
    std::optional<ptrdiff_t> end;
    std::optional<ptrdiff_t> step;

    // `axis` -1 applies to a layout that collapses to one axis. Positions outside the axis and a
    // step of 0 stop the process; an empty range is allowed.
    SubTensorRegion apply(const kern::TensorLayout& layout, int axis) const;
};

}  // namespace orb
