// The axes along which a relayout walks its two tensors in step.
#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "kernels/types/layout.h"

namespace kern::fallback {

// One axis that both tensors walk in step. Strides are in elements.
struct CopyAxis {
    size_t length;
    ptrdiff_t src_stride;
    ptrdiff_t dst_stride;
};

// Both tensors over common axes, the innermost first.
class CopyWalk {
public:
    // Nothing when the lengths of the two layouts do not divide each other axis by axis. Neither
    // layout is empty.
    static std::optional<CopyWalk> plan(const TensorLayout& src, const TensorLayout& dst);

    size_t nr_axes() const { return m_nr_axes; }
    const CopyAxis& operator[](size_t axis) const { return m_axes[axis]; }

    // `function(src offset, dst offset)`, in elements, for each position on the axes from `first`
    // outwards.
    template <typename Function>
    void for_each_from(size_t first, Function&& function) const {
        visit(m_nr_axes, first, 0, 0, function);
    }

private:
    // Joins the axis to the one inside it where both tensors allow it.
    void append(const CopyAxis& axis);

    template <typename Function>
    void visit(size_t end, size_t first, ptrdiff_t src, ptrdiff_t dst, Function& function) const {
        if (end == first) {
            function(src, dst);
            return;
        }
        const CopyAxis& axis = m_axes[end - 1];
        for (size_t i = 0; i < axis.length; ++i) {
            visit(end - 1, first, src, dst, function);
            src += axis.src_stride;
            dst += axis.dst_stride;
        }
    }

    size_t m_nr_axes = 0;
    std::array<CopyAxis, 2 * TensorShape::MAX_NDIM> m_axes{};
};

}  // namespace kern::fallback
