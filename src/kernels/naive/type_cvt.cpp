#include "kernels/naive/type_cvt.h"

#include "kernels/naive/tensor_iterator.h"
#include "kernels/type_cvt_rules.h"

namespace kern::naive {
namespace {

template <typename To, typename From>
struct Kernel {
    static void run(const RawTensor& src, void* dst_ptr) {
        const size_t count = src.layout.element_count();
        TensorIterator<const From> from(src.ptr<const From>(), src.layout);
        To* dst = static_cast<To*>(dst_ptr);
        for (size_t i = 0; i < count; ++i, ++from)
            dst[i] = convert_element<To>(*from);
    }
};

}  // namespace

void TypeCvtImpl::exec(const RawTensor& src, const RawTensor& dst) {
    check_exec(src.layout, dst.layout);
    if (src.layout.is_empty())
        return;
    const auto kernel =
        select_type_cvt<Kernel>(dst.layout.dtype.enum_value(), src.layout.dtype.enum_value());
    dispatch([kernel, src, target = dst.raw_ptr] { kernel(src, target); });
}

}  // namespace kern::naive
