// How one element is converted, and the selection of a kernel by the pair of dtypes.
#pragma once

#include <cstdint>
#include <type_traits>

#include "kernels/types/dtype_switch.h"
#include "kernels/types/quantise.h"

namespace kern {

// The elements of a plain dtype, stored as T.
template <typename T>
struct PlainElements {
    using Stored = T;
    static constexpr bool IS_PLAIN = true;

    explicit PlainElements(DType) {}
    float read(T value) const { return static_cast<float>(value); }
    T write(float value) const {
        if constexpr (std::is_integral<T>::value)
            return static_cast<T>(truncate_to_int(value));
        else
            return static_cast<T>(value);
    }
};

template <typename T>
struct QuantisedElements {
    using Stored = T;
    static constexpr bool IS_PLAIN = false;

    explicit QuantisedElements(DType dtype) : m_quantisation(Quantisation::of(dtype)) {}
    float read(T value) const { return m_quantisation.real(value); }
    T write(float value) const { return m_quantisation.nearest<T>(value); }

private:
    Quantisation m_quantisation;
};

// Plain integers keep their low bits and plain equals stay what they are; all else goes through a
// 32-bit float.
template <typename To, typename From>
class ElementConversion {
public:
    ElementConversion(DType to, DType from) : m_to(to), m_from(from) {}

    typename To::Stored operator()(typename From::Stored value) const {
        using ToStored = typename To::Stored;
        using FromStored = typename From::Stored;
        if constexpr (To::IS_PLAIN && From::IS_PLAIN && std::is_same<ToStored, FromStored>::value)
            return value;
        else if constexpr (To::IS_PLAIN && From::IS_PLAIN && std::is_integral<ToStored>::value &&
                           std::is_integral<FromStored>::value)
            return static_cast<ToStored>(value);
        else
            return m_to.write(m_from.read(value));
    }

private:
    To m_to;
    From m_from;
};

// `function(TypeTag<E>{})` with the E that reads and writes the dtype's elements; an empty result
// for dtypes that are no numbers.
template <typename Function>
auto with_elements(DTypeEnum dtype, Function&& function) {
    switch (dtype) {
        case DTypeEnum::QUANTIZED8_ASYMM:
            return function(TypeTag<QuantisedElements<uint8_t>>{});
        case DTypeEnum::QUANTIZED_S32:
            return function(TypeTag<QuantisedElements<int32_t>>{});
        case DTypeEnum::QUANTIZED_S8:
            return function(TypeTag<QuantisedElements<int8_t>>{});
        default:
            return with_number_type(dtype, [&function](auto tag) {
                return function(TypeTag<PlainElements<typename decltype(tag)::Type>>{});
            });
    }
}

// Kernel<To, From>::run, To and From as `with_elements` gives them. Stops the process on types that
// are no numbers.
template <template <typename To, typename From> class Kernel>
auto select_type_cvt(DType to, DType from) {
    const auto kernel = with_elements(to.enum_value(), [from](auto to_tag) {
        return with_elements(from.enum_value(), [](auto from_tag) {
            return &Kernel<typename decltype(to_tag)::Type, typename decltype(from_tag)::Type>::run;
        });
    });
    KERN_CHECK(kernel);
    return kernel;
}

}  // namespace kern
