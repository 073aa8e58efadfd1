#include "kernels/naive/elementwise.h"

#include <utility>

#include "kernels/naive/tensor_iterator.h"
#include "kernels/operators/broadcast.h"
#include "kernels/operators/elementwise_formulas.h"

namespace kern::naive {
namespace {

template <ElementwiseMode MODE, typename T>
struct Kernel {
    static void run(const BroadcastSet& set, const RawTensor& output) {
        loop(set, TensorIterator<T>(output.ptr<T>(), output.layout),
             std::make_index_sequence<Formula<MODE>::TRAIT.arity>{});
    }

private:
    template <size_t... I>
    static void loop(const BroadcastSet& set, TensorIterator<T> output, std::index_sequence<I...>) {
        TensorIterator<const T> inputs[] = {TensorIterator<const T>(
            static_cast<const T*>(set.views[I].raw_ptr), set.views[I].layout)...};
        for (size_t i = 0; i < set.element_count; ++i, ++output) {
            *output = Formula<MODE>::template apply<T>(*inputs[I]...);
            (++inputs[I], ...);
        }
    }
};

}  // namespace

void ElementwiseImpl::exec(const std::vector<RawTensor>& inputs, const RawTensor& output) {
    check_exec(inputs, output);
    const auto kernel =
        select_elementwise<Kernel, 0>(m_param.mode, output.layout.dtype.enum_value());
    dispatch(
        [kernel, set = BroadcastSet(inputs, output.layout),
         target = RawTensor(output.raw_ptr, flattened(output.layout))] { kernel(set, target); });
}

}  // namespace kern::naive
