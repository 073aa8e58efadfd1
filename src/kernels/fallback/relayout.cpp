#include "kernels/fallback/relayout.h"

#include <array>
#include <cstring>
#include <optional>

#include "kernels/dtype_switch.h"

namespace kern::fallback {
namespace {

// One axis that both tensors walk in step.
struct CopyAxis {
    size_t length;
    ptrdiff_t src_stride;
    ptrdiff_t dst_stride;
};

// Both tensors over common axes, the innermost first. Strides are in elements.
class CopyWalk {
public:
    // Nothing when the lengths of the two layouts do not divide each other axis by axis.
    static std::optional<CopyWalk> plan(const TensorLayout& src_layout,
                                        const TensorLayout& dst_layout) {
        const TensorLayout src = src_layout.collapsed();
        const TensorLayout dst = dst_layout.collapsed();
        CopyWalk walk;
        AxisCursor s(src);
        AxisCursor d(dst);
        while (!s.done() && !d.done()) {
            const size_t length = s.left() < d.left() ? s.left() : d.left();
            if (s.left() % length != 0 || d.left() % length != 0)
                return std::nullopt;
            walk.append({length, s.stride(), d.stride()});
            s.take(length);
            d.take(length);
        }
        return walk;
    }

    size_t nr_axes() const { return m_nr_axes; }
    const CopyAxis& operator[](size_t axis) const { return m_axes[axis]; }

private:
    // The part of a layout, from its last axis outwards, that is not yet in the walk.
    class AxisCursor {
    public:
        explicit AxisCursor(const TensorLayout& layout) : m_layout(layout), m_axis(layout.ndim) {
            next_axis();
        }
        bool done() const { return m_done; }
        size_t left() const { return m_left; }
        ptrdiff_t stride() const { return m_stride; }
        void take(size_t length) {
            m_left /= length;
            m_stride *= static_cast<ptrdiff_t>(length);
            if (m_left == 1)
                next_axis();
        }

    private:
        void next_axis() {
            m_done = m_axis == 0;
            if (m_done)
                return;
            --m_axis;
            m_left = m_layout.shape[m_axis];
            m_stride = m_layout.stride[m_axis];
        }

        const TensorLayout& m_layout;
        size_t m_axis;
        size_t m_left = 0;
        ptrdiff_t m_stride = 0;
        bool m_done = false;
    };

    // Joins the axis to the one inside it where both tensors allow it.
    void append(const CopyAxis& axis) {
        if (m_nr_axes > 0) {
            CopyAxis& inner = m_axes[m_nr_axes - 1];
            const auto length = static_cast<ptrdiff_t>(inner.length);
            if (axis.src_stride == inner.src_stride * length &&
                axis.dst_stride == inner.dst_stride * length) {
                inner.length *= axis.length;
                return;
            }
        }
        m_axes[m_nr_axes++] = axis;
    }

    size_t m_nr_axes = 0;
    std::array<CopyAxis, 2 * TensorShape::MAX_NDIM> m_axes{};
};

template <size_t ELEMENT_BYTES>
void copy_strided(const uint8_t* src, uint8_t* dst, const CopyAxis& axis) {
    constexpr auto BYTES = static_cast<ptrdiff_t>(ELEMENT_BYTES);
    for (size_t i = 0; i < axis.length; ++i) {
        const auto index = static_cast<ptrdiff_t>(i);
        std::memcpy(dst + index * axis.dst_stride * BYTES, src + index * axis.src_stride * BYTES,
                    ELEMENT_BYTES);
    }
}

template <size_t ELEMENT_BYTES>
void copy_axes(const CopyWalk& walk, size_t axis, const uint8_t* src, uint8_t* dst) {
    constexpr auto BYTES = static_cast<ptrdiff_t>(ELEMENT_BYTES);
    const CopyAxis& current = walk[axis];
    if (axis == 0) {
        if (current.src_stride == 1 && current.dst_stride == 1)
            std::memcpy(dst, src, current.length * ELEMENT_BYTES);
        else
            copy_strided<ELEMENT_BYTES>(src, dst, current);
        return;
    }
    for (size_t i = 0; i < current.length; ++i) {
        const auto index = static_cast<ptrdiff_t>(i);
        copy_axes<ELEMENT_BYTES>(walk, axis - 1, src + index * current.src_stride * BYTES,
                                 dst + index * current.dst_stride * BYTES);
    }
}

}  // namespace

void RelayoutImpl::exec(const RawTensor& src, const RawTensor& dst, KernelHandle* src_handle) {
    check_exec(src.layout, dst.layout);
    const auto kernel =
        with_element_bytes(dst.layout.dtype, [](auto bytes) { return &copy_axes<bytes()>; });
    if (dst.layout.is_empty())
        return;
    const auto walk = CopyWalk::plan(src.layout, dst.layout);
    if (!walk) {
        naive::RelayoutImpl::exec(src, dst, src_handle);
        return;
    }
    dispatch([kernel, walk = *walk, from = src.ptr<const uint8_t>(), to = dst.ptr<uint8_t>()] {
        kernel(walk, walk.nr_axes() - 1, from, to);
    });
}

}  // namespace kern::fallback
