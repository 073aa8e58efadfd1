#include "kernels/operators/type_cvt.h"

#include "kernels/check.h"

namespace kern {

void TypeCvt::check_exec(const TensorLayout& src, const TensorLayout& dst) const {
    KERN_CHECK(src.dtype.valid() && dst.dtype.valid());
    KERN_CHECK(src.same_shape(dst));
    KERN_CHECK(dst.is_dense() || dst.has_zero_axis());
}

}  // namespace kern
