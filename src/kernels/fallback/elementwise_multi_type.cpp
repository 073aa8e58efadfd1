#include "kernels/fallback/elementwise_multi_type.h"

#include <utility>

#include "kernels/operators/elementwise_multi_type_rules.h"

namespace kern::fallback {
namespace {

template <typename Rule, size_t... I>
void loop(const Rule& rule, const BroadcastSet& inputs, typename Rule::Output* output,
          std::index_sequence<I...>) {
    const auto pointers =
        std::make_tuple(static_cast<const std::tuple_element_t<I, typename Rule::Inputs>*>(
            inputs.views[I].raw_ptr)...);
    const ptrdiff_t strides[] = {inputs.views[I].layout.stride[0]...};
    const auto count = static_cast<ptrdiff_t>(inputs.element_count);
    for (ptrdiff_t i = 0; i < count; ++i)
        output[i] = rule(std::get<I>(pointers)[i * strides[I]]...);
}

template <typename Rule>
void run(const Rule& rule, const BroadcastSet& inputs, void* output) {
    loop(rule, inputs, static_cast<typename Rule::Output*>(output),
         std::make_index_sequence<std::tuple_size<typename Rule::Inputs>::value>{});
}

}  // namespace

#define KERN_MULTI_TYPE_MODE(number, NAME, method, arity)                                        \
    void ElementwiseMultiTypeImpl::method(const BroadcastSet& inputs, const RawTensor& output) { \
        if (inputs.max_ndim > 1 || !output.layout.is_dense_raw())                                \
            return naive::ElementwiseMultiTypeImpl::method(inputs, output);                      \
        multi_type::with_rule<Mode::NAME>(inputs, output.layout.dtype, [&](auto rule) {          \
            dispatch([rule, inputs, out = output.raw_ptr] { run(rule, inputs, out); });          \
        });                                                                                      \
    }
#include "kernels/operators/elementwise_multi_type_modes.inc"
#undef KERN_MULTI_TYPE_MODE

}  // namespace kern::fallback
