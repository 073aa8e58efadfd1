#include "kernels/naive/elementwise_multi_type.h"

#include <utility>

#include "kernels/naive/tensor_iterator.h"
#include "kernels/operators/elementwise_multi_type_rules.h"

namespace kern::naive {
namespace {

template <typename Rule, size_t... I>
void loop(const Rule& rule, const BroadcastSet& inputs, const RawTensor& output_tensor,
          std::index_sequence<I...>) {
    std::tuple<TensorIterator<const std::tuple_element_t<I, typename Rule::Inputs>>...> iterators{
        {static_cast<const std::tuple_element_t<I, typename Rule::Inputs>*>(
             inputs.views[I].raw_ptr),
         inputs.views[I].layout}...};
    TensorIterator<typename Rule::Output> output(output_tensor.ptr<typename Rule::Output>(),
                                                 output_tensor.layout);
    for (size_t i = 0; i < inputs.element_count; ++i, ++output) {
        *output = rule(*std::get<I>(iterators)...);
        (++std::get<I>(iterators), ...);
    }
}

template <typename Rule>
void run(const Rule& rule, const BroadcastSet& inputs, const RawTensor& output) {
    loop(rule, inputs, output,
         std::make_index_sequence<std::tuple_size<typename Rule::Inputs>::value>{});
}

}  // namespace

#define KERN_MULTI_TYPE_MODE(number, NAME, method, arity)                                        \
    void ElementwiseMultiTypeImpl::method(const BroadcastSet& inputs, const RawTensor& output) { \
        multi_type::with_rule<Mode::NAME>(inputs, output.layout.dtype, [&](auto rule) {          \
            dispatch([rule, inputs, out = RawTensor(output.raw_ptr, flattened(output.layout))] { \
                run(rule, inputs, out);                                                          \
            });                                                                                  \
        });                                                                                      \
    }
#include "kernels/operators/elementwise_multi_type_modes.inc"
#undef KERN_MULTI_TYPE_MODE

}  // namespace kern::naive
