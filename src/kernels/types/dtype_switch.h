// Selection of kernels by dtype: the one place that knows which C++ type stores a dtype. For
// templates that are instantiated per stored type or per element size. Stateless.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "kernels/check.h"
#include "kernels/types/dtype.h"
#include "kernels/types/float16.h"

namespace kern {

template <typename T>
struct TypeTag {
    using Type = T;
};

// `function(TypeTag<T>{})` with the T that stores the dtype. Dtypes that are no plain numbers give
// an empty result (a null kernel).
template <typename Function>
auto with_number_type(DTypeEnum dtype, Function&& function) {
    using Result = decltype(function(TypeTag<float>{}));
    switch (dtype) {
        case DTypeEnum::FLOAT32:
            return function(TypeTag<float>{});
        case DTypeEnum::FLOAT16:
            return function(TypeTag<Float16>{});
        case DTypeEnum::INT32:
            return function(TypeTag<int32_t>{});
        case DTypeEnum::INT16:
            return function(TypeTag<int16_t>{});
        case DTypeEnum::INT8:
            return function(TypeTag<int8_t>{});
        case DTypeEnum::UINT8:
            return function(TypeTag<uint8_t>{});
        default:
            return Result();
    }
}

// As `with_number_type`, and quantised types give the integers that they are stored as.
template <typename Function>
auto with_stored_type(DTypeEnum dtype, Function&& function) {
    switch (dtype) {
        case DTypeEnum::QUANTIZED8_ASYMM:
            return function(TypeTag<uint8_t>{});
        case DTypeEnum::QUANTIZED_S32:
            return function(TypeTag<int32_t>{});
        case DTypeEnum::QUANTIZED_S8:
            return function(TypeTag<int8_t>{});
        default:
            return with_number_type(dtype, function);
    }
}

// `function(N)` with the bytes of one element as an integral constant. Low-bit types, whose
// elements are less than a byte, stop the process.
template <typename Function>
auto with_element_bytes(DType dtype, Function&& function) {
    switch (dtype.element_bytes()) {
        case 1:
            return function(std::integral_constant<size_t, 1>{});
        case 2:
            return function(std::integral_constant<size_t, 2>{});
        case 4:
            return function(std::integral_constant<size_t, 4>{});
        default:
            KERN_FAIL();
    }
}

}  // namespace kern
