#include "kernels/naive/type_cvt.h"

#include "kernels/naive/tensor_iterator.h"
#include "kernels/operators/type_cvt_rules.h"

namespace kern::naive {
namespace {

template <typename To, typename From>
struct Kernel {
    static void run(const RawTensor& src, const RawTensor& dst) {
        using FromStored = typename From::Stored;
        const ElementConversion<To, From> convert(dst.layout.dtype, src.layout.dtype);
        const size_t count = src.layout.element_count();
        TensorIterator<const FromStored> from(src.ptr<const FromStored>(), src.layout);
        TensorIterator<typename To::Stored> to(dst.ptr<typename To::Stored>(), dst.layout);
        for (size_t i = 0; i < count; ++i, ++from, ++to)
            *to = convert(*from);
    }
};

}  // namespace

void TypeCvtImpl::exec(const RawTensor& src, const RawTensor& dst) {
    check_exec(src.layout, dst.layout);
    if (src.layout.is_empty())
        return;
    const auto kernel = select_type_cvt<Kernel>(dst.layout.dtype, src.layout.dtype);
    dispatch([kernel, src, dst] { kernel(src, dst); });
}

}  // namespace kern::naive
