// Handles, tensors and random data for the kernel tests.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "kernels/check.h"
#include "kernels/handle.h"
#include "kernels/types/dtype_switch.h"
#if defined(__x86_64__)
#include "kernels/x86/cpu.h"
#endif

namespace kern_test {

using kern::DType;
using kern::Float16;
using kern::RawTensor;
using kern::TensorLayout;
using kern::TensorShape;

using Sizes = std::vector<size_t>;

// How many random cases a test takes of those that it would like: sanitizers are slow.
constexpr int some_of(int cases) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    return cases / 5;
#else
    return cases;
#endif
}

constexpr auto NAIVE = kern::HandleLevel::NAIVE;
constexpr auto FALLBACK = kern::HandleLevel::FALLBACK;
constexpr auto ARMV7 = kern::HandleLevel::ARMV7;
// The x86 level with one of its instruction sets forced.
constexpr auto X86_AVX2 = static_cast<kern::HandleLevel>(1001);
constexpr auto X86_AVX512 = static_cast<kern::HandleLevel>(1002);

// The forced levels that this machine has.
inline std::vector<kern::HandleLevel> x86_levels() {
    std::vector<kern::HandleLevel> levels;
#if defined(__x86_64__)
    if (kern::x86::best_instruction_set() >= kern::x86::InstructionSet::AVX2)
        levels.push_back(X86_AVX2);
    if (kern::x86::best_instruction_set() >= kern::x86::InstructionSet::AVX512)
        levels.push_back(X86_AVX512);
#endif
    return levels;
}

inline const std::vector<kern::HandleLevel> LEVELS = [] {
    std::vector<kern::HandleLevel> levels{NAIVE, FALLBACK, ARMV7};
    for (kern::HandleLevel level : x86_levels())
        levels.push_back(level);
    return levels;
}();

inline const char* level_name(kern::HandleLevel level) {
    return level == NAIVE        ? "naive"
           : level == FALLBACK   ? "fallback"
           : level == X86_AVX2   ? "x86, avx2"
           : level == X86_AVX512 ? "x86, avx512"
                                 : "armv7";
}

inline kern::ComputingHandle inline_computing() {
    return {kern::Platform::CPU, std::make_shared<kern::InlineDispatcher>()};
}

// A forced instruction set stays in force until the next handle is made here.
inline std::unique_ptr<kern::KernelHandle> make_handle(
    kern::HandleLevel level, const kern::ComputingHandle& computing = inline_computing()) {
#if defined(__x86_64__)
    using kern::x86::InstructionSet;
    const bool forced = level == X86_AVX2 || level == X86_AVX512;
    if (kern::x86::best_instruction_set() != InstructionSet::NONE)
        kern::x86::force_instruction_set(level == X86_AVX2     ? InstructionSet::AVX2
                                         : level == X86_AVX512 ? InstructionSet::AVX512
                                                               : kern::x86::best_instruction_set());
    if (forced)
        level = kern::HandleLevel::X86;
#endif
    return kern::make_handle_of_level(computing, level);
}

inline const std::vector<DType>& number_types() {
    static const std::vector<DType> types = {DType::Float32(), DType::Float16(), DType::Int32(),
                                             DType::Int16(),   DType::Int8(),    DType::Uint8()};
    return types;
}

// Calls `function` with a value of the C++ type that stores the dtype.
template <typename Function>
void with_type(DType dtype, Function function) {
    kern::with_stored_type(dtype.enum_value(),
                           [&](auto tag) { function(typename decltype(tag)::Type{}); });
}

// While it lives, a failed check throws instead of stopping the process.
struct Refused {
    bool is_reshape = false;
};
class ThrowingChecks final : public kern::KernelErrorHandler {
public:
    ThrowingChecks() { kern::set_kernel_error_handler(this); }
    ~ThrowingChecks() override { kern::set_kernel_error_handler(nullptr); }
    void on_error(const std::string&) override { throw Refused(); }
    void on_reshape_error(const std::string&) override { throw Refused{true}; }
};

// Memory that ends at an unmapped page: a read or write behind it ends the test. Filled with 0xff,
// which is NaN in every float type. Mappings are kept for later buffers of their size.
class GuardedBuffer {
public:
    explicit GuardedBuffer(size_t bytes) {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        m_mapped = (bytes + page - 1) / page * page + page;
        auto& free = free_of_size()[m_mapped];
        if (!free.empty()) {
            m_base = free.back();
            free.pop_back();
        } else {
            m_base = static_cast<uint8_t*>(mmap(nullptr, m_mapped, PROT_READ | PROT_WRITE,
                                                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
            mprotect(m_base + m_mapped - page, page, PROT_NONE);
        }
        m_data = m_base + m_mapped - page - bytes;
        std::memset(m_base, 0xff, m_mapped - page);
    }
    ~GuardedBuffer() { free_of_size()[m_mapped].push_back(m_base); }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;
    uint8_t* data() const { return m_data; }

private:
    static std::unordered_map<size_t, std::vector<uint8_t*>>& free_of_size() {
        static thread_local std::unordered_map<size_t, std::vector<uint8_t*>> mappings;
        return mappings;
    }

    uint8_t* m_base;
    uint8_t* m_data;
    size_t m_mapped;
};

// Where the element at a row-major position lies.
inline ptrdiff_t offset_of(const TensorLayout& layout, size_t position) {
    ptrdiff_t offset = 0;
    for (size_t axis = layout.ndim; axis-- > 0; position /= layout[axis])
        offset += layout.stride[axis] * static_cast<ptrdiff_t>(position % layout[axis]);
    return offset;
}

inline double get_number(const RawTensor& tensor, size_t position) {
    double value = 0;
    with_type(tensor.layout.dtype, [&](auto tag) {
        const auto element = tensor.ptr<decltype(tag)>()[offset_of(tensor.layout, position)];
        if constexpr (std::is_same<decltype(tag), Float16>::value)
            value = static_cast<double>(static_cast<float>(element));
        else
            value = static_cast<double>(element);
    });
    return value;
}

// A tensor that owns exactly the memory its layout touches.
class Tensor {
public:
    explicit Tensor(const TensorLayout& layout)
        : m_layout(layout),
          m_bytes(layout.span().high_byte - static_cast<size_t>(layout.span().low_byte)),
          m_buffer(m_bytes) {}
    Tensor(const TensorShape& shape, DType dtype) : Tensor(TensorLayout(shape, dtype)) {}

    RawTensor raw() const { return {m_buffer.data() - m_layout.span().low_byte, m_layout}; }
    const TensorLayout& layout() const { return m_layout; }
    // All memory, with what lies between the elements.
    std::string bytes() const {
        return std::string(reinterpret_cast<const char*>(m_buffer.data()), m_bytes);
    }

    // The element at a row-major position.
    template <typename T>
    T& at(size_t position) const {
        return raw().ptr<T>()[offset_of(m_layout, position)];
    }
    double get(size_t position) const { return get_number(raw(), position); }
    // Converts to the dtype; an integer that does not fit keeps its low bits.
    void set(size_t position, double value) const {
        with_type(m_layout.dtype, [&](auto tag) {
            using T = decltype(tag);
            if constexpr (std::is_integral<T>::value)
                at<T>(position) = static_cast<T>(static_cast<int64_t>(value));
            else
                at<T>(position) = static_cast<T>(static_cast<float>(value));
        });
    }
    template <typename Make>
    Tensor& fill(Make make) {
        for (size_t i = 0; i < m_layout.element_count(); ++i)
            set(i, make());
        return *this;
    }
    Tensor& fill_with(const std::vector<double>& values) {
        size_t next = 0;
        return fill([&] { return values[next++]; });
    }
    // Whole numbers in [low, high]: sums of products of them are exact in every type here.
    Tensor& fill_integers(std::mt19937& random, int low, int high) {
        std::uniform_int_distribution<int> values(low, high);
        return fill([&] { return values(random); });
    }
    Tensor& fill_uniform(std::mt19937& random, float low, float high) {
        std::uniform_real_distribution<float> values(low, high);
        return fill([&] { return values(random); });
    }

private:
    TensorLayout m_layout;
    size_t m_bytes;
    GuardedBuffer m_buffer;
};

// A layout with given strides.
inline TensorLayout strided(const TensorShape& shape, const std::vector<ptrdiff_t>& strides,
                            DType dtype) {
    TensorLayout layout(dtype);
    static_cast<TensorShape&>(layout) = shape;
    for (size_t axis = 0; axis < shape.ndim; ++axis)
        layout.stride[axis] = strides[axis];
    return layout;
}

// Runs an operator of the level in a workspace of just the size that it asks for; returns the size.
template <typename Operator, typename... Tensors>
size_t run_operator(kern::HandleLevel level, const typename Operator::Param& param,
                    const Tensors&... tensors) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<Operator>();
    op->param() = param;
    const size_t bytes = op->workspace_in_bytes(tensors.layout()...);
    const GuardedBuffer workspace(bytes);
    op->exec(tensors.raw()..., {workspace.data(), bytes});
    return bytes;
}

template <typename Operator>
void run_elementwise(kern::HandleLevel level, decltype(Operator::Param::mode) mode,
                     const std::vector<RawTensor>& inputs, const RawTensor& output) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<Operator>();
    op->param().mode = mode;
    op->exec(inputs, output);
}

// `function(positions)` with the row-major positions of each line along the axis, in the row-major
// order of what is left when the axis collapses.
template <typename Function>
void for_each_line(const TensorShape& shape, size_t axis, Function function) {
    size_t step = 1;
    for (size_t inner = axis + 1; inner < shape.ndim; ++inner)
        step *= shape[inner];
    std::vector<size_t> line(shape[axis]);
    for (size_t first = 0; first < shape.element_count(); ++first) {
        if (first / step % shape[axis] != 0)
            continue;
        for (size_t i = 0; i < line.size(); ++i)
            line[i] = first + i * step;
        function(line);
    }
}

}  // namespace kern_test
