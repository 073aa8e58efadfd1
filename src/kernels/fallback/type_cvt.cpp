#include "kernels/fallback/type_cvt.h"

#include "kernels/type_cvt_rules.h"

namespace kern::fallback {
namespace {

template <typename To, typename From>
struct Kernel {
    static void run(const void* src_ptr, void* dst_ptr, size_t count) {
        const From* src = static_cast<const From*>(src_ptr);
        To* dst = static_cast<To*>(dst_ptr);
        for (size_t i = 0; i < count; ++i)
            dst[i] = convert_element<To>(src[i]);
    }
};

}  // namespace

void TypeCvtImpl::exec(const RawTensor& src, const RawTensor& dst) {
    check_exec(src.layout, dst.layout);
    if (!src.layout.is_dense() || src.layout.ndim == 0) {
        naive::TypeCvtImpl::exec(src, dst);
        return;
    }
    const auto kernel =
        select_type_cvt<Kernel>(dst.layout.dtype.enum_value(), src.layout.dtype.enum_value());
    dispatch([kernel, from = src.raw_ptr, to = dst.raw_ptr, count = src.layout.element_count()] {
        kernel(from, to, count);
    });
}

}  // namespace kern::fallback
