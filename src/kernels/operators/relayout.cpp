#include "kernels/operators/relayout.h"

#include "kernels/check.h"

namespace kern {

void Relayout::check_exec(const TensorLayout& src, const TensorLayout& dst) const {
    KERN_CHECK(src.dtype.valid() && src.dtype == dst.dtype);
    KERN_CHECK(src.element_count() == dst.element_count());
    KERN_CHECK(dst.has_zero_axis() || dst.is_non_overlapping());
}

}  // namespace kern
