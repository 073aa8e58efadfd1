#include "kernels/naive/cond_take.h"

#include <cmath>
#include <cstring>
#include <type_traits>

#include "kernels/checked_math.h"
#include "kernels/naive/tensor_iterator.h"
#include "kernels/types/dtype_switch.h"

namespace kern::naive {
namespace {

// Writes the positions at which the test holds; returns how many there are.
template <typename Mask, typename Test>
size_t find_positions(TensorIterator<const Mask> mask, size_t count, int32_t* positions,
                      Test test) {
    // Integers are compared in double precision, which holds all of them.
    using Number = std::conditional_t<std::is_integral<Mask>::value, double, float>;
    size_t found = 0;
    for (size_t i = 0; i < count; ++i, ++mask) {
        positions[found] = static_cast<int32_t>(i);
        found += test(static_cast<Number>(*mask));
    }
    return found;
}

template <typename Mask>
size_t find_positions(const CondTake::Param& param, const RawTensor& mask, int32_t* positions) {
    const size_t count = mask.layout.element_count();
    const auto find = [&](auto test) {
        const TensorIterator<const Mask> elements(mask.ptr<const Mask>(), mask.layout);
        return find_positions(elements, count, positions, test);
    };
    const float value = param.value;
    const float eps = param.eps;
    const auto equal = [=](auto x) {
        if constexpr (std::is_integral<Mask>::value)
            return x == value;
        else
            return std::fabs(value - x) < eps;
    };
    switch (param.mode) {
        case CondTakeMode::EQUAL:
            return find(equal);
        case CondTakeMode::NOT_EQUAL:
            return find([equal](auto x) { return !equal(x); });
        case CondTakeMode::LESS:
            return find([value](auto x) { return x < value; });
        case CondTakeMode::LESS_EQUAL:
            return find([value](auto x) { return x <= value; });
        case CondTakeMode::GREATER:
            return find([value](auto x) { return x > value; });
        case CondTakeMode::GREATER_EQUAL:
            return find([value](auto x) { return x >= value; });
    }
    KERN_FAIL();
}

// The offset, in elements, of the element with this row-major index.
ptrdiff_t offset_of(const TensorLayout& layout, size_t index) {
    ptrdiff_t offset = 0;
    for (size_t axis = layout.ndim; --axis > 0; index /= layout[axis])
        offset += static_cast<ptrdiff_t>(index % layout[axis]) * layout.stride[axis];
    return offset + static_cast<ptrdiff_t>(index) * layout.stride[0];
}

template <size_t ELEMENT_BYTES>
void take(const RawTensor& data, const int32_t* positions, size_t count, uint8_t* elements,
          int32_t* indices) {
    std::memcpy(indices, positions, count * sizeof(*indices));
    constexpr auto BYTES = static_cast<ptrdiff_t>(ELEMENT_BYTES);
    for (size_t i = 0; i < count; ++i) {
        const ptrdiff_t offset = offset_of(data.layout, static_cast<size_t>(positions[i]));
        std::memcpy(elements + i * ELEMENT_BYTES, data.ptr<const uint8_t>() + offset * BYTES,
                    ELEMENT_BYTES);
    }
}

}  // namespace

size_t CondTakeImpl::workspace_in_bytes(const TensorLayout& data, const TensorLayout&) {
    return checked_mul(checked_add(data.element_count(), 1), sizeof(int32_t));
}

CondTake::Outputs CondTakeImpl::exec(const RawTensor& data, const RawTensor& mask,
                                     const Workspace& workspace,
                                     const OutputAllocator& output_allocator) {
    check_exec(data.layout, mask.layout, workspace.size);
    const auto find = with_number_type(mask.layout.dtype.enum_value(), [](auto tag) {
        return static_cast<size_t (*)(const Param&, const RawTensor&, int32_t*)>(
            &find_positions<typename decltype(tag)::Type>);
    });
    KERN_CHECK(find);
    const auto take_elements =
        with_element_bytes(data.layout.dtype, [](auto bytes) { return &take<bytes()>; });

    auto* positions = workspace.as<int32_t>();
    int32_t* found = positions + data.layout.element_count();
    dispatch([find, param = m_param, flags = RawTensor(mask.raw_ptr, flattened(mask.layout)),
              positions, found] { *found = static_cast<int32_t>(find(param, flags, positions)); });
    handle()->sync();

    const auto count = static_cast<size_t>(*found);
    const Outputs outputs{output_allocator(data.layout.dtype, {count}),
                          output_allocator(DType::Int32(), {count})};
    if (count != 0)
        dispatch([take_elements, count, positions,
                  from = RawTensor(data.raw_ptr, flattened(data.layout)),
                  elements = outputs.data.ptr<uint8_t>(),
                  indices = outputs.indices.ptr<int32_t>()] {
            take_elements(from, positions, count, elements, indices);
        });
    return outputs;
}

}  // namespace kern::naive
