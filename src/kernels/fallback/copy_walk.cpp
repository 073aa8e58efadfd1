#include "kernels/fallback/copy_walk.h"

#include "kernels/checked_math.h"

namespace kern::fallback {
namespace {

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
        if (m_left == 1)
            next_axis();
        else
            m_stride = checked_mul(m_stride, checked_stride(length));
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

}  // namespace

std::optional<CopyWalk> CopyWalk::plan(const TensorLayout& src_layout,
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

void CopyWalk::append(const CopyAxis& axis) {
    if (m_nr_axes > 0) {
        CopyAxis& inner = m_axes[m_nr_axes - 1];
        const ptrdiff_t length = checked_stride(inner.length);
        if (axis.src_stride == checked_mul(inner.src_stride, length) &&
            axis.dst_stride == checked_mul(inner.dst_stride, length)) {
            inner.length *= axis.length;
            return;
        }
    }
    m_axes[m_nr_axes++] = axis;
}

}  // namespace kern::fallback
