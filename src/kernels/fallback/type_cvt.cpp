#include "kernels/fallback/type_cvt.h"

#include "kernels/operators/type_cvt_rules.h"

namespace kern::fallback {
namespace {

template <typename To, typename From>
struct Kernel {
    static void run(const RawTensor& src, const RawTensor& dst) {
        const ElementConversion<To, From> convert(dst.layout.dtype, src.layout.dtype);
        const auto* from = src.ptr<const typename From::Stored>();
        auto* to = dst.ptr<typename To::Stored>();
        const size_t count = src.layout.element_count();
        for (size_t i = 0; i < count; ++i)
            to[i] = convert(from[i]);
    }
};

}  // namespace

void TypeCvtImpl::exec(const RawTensor& src, const RawTensor& dst) {
    check_exec(src.layout, dst.layout);
    if (src.layout.is_empty() || !src.layout.is_dense_raw() || !dst.layout.is_dense_raw()) {
        naive::TypeCvtImpl::exec(src, dst);
        return;
    }
    const auto kernel = select_type_cvt<Kernel>(dst.layout.dtype, src.layout.dtype);
    dispatch([kernel, src, dst] { kernel(src, dst); });
}

}  // namespace kern::fallback
