#include "kernels/operators/sorting.h"

#include <algorithm>
#include <numeric>

#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::Argsort;
using kern::TopK;
using Order = Argsort::Order;
using Mode = TopK::Mode;

const DType F32 = DType::Float32(), I32 = DType::Int32();

// The indices of a row by value, ties by index, NaN last; `descending` is the exact reverse.
std::vector<size_t> sorted_indices(const Tensor& data, size_t row, bool descending) {
    const size_t length = data.layout()[1];
    std::vector<size_t> indices(length);
    std::iota(indices.begin(), indices.end(), size_t{0});
    const auto key = [&](size_t i) {
        const double value = data.get(row * length + i);
        return std::make_pair(std::isnan(value), std::isnan(value) ? 0 : value);
    };
    std::stable_sort(indices.begin(), indices.end(),
                     [&](size_t a, size_t b) { return key(a) < key(b); });
    if (descending)
        std::reverse(indices.begin(), indices.end());
    return indices;
}

// Values with many ties, both zeros, infinities and, where there are any, NaN.
void fill_with_ties(Tensor& data, std::mt19937& random) {
    const bool is_float = data.layout().dtype.category() == kern::DTypeCategory::FLOAT;
    const bool has_sign = data.layout().dtype != DType::Uint8();
    std::uniform_int_distribution<int> values(0, 40);
    data.fill([&]() -> double {
        const int value = values(random);
        if (is_float && value < 5)
            return std::vector<double>{NAN, -0.0, 0.0, INFINITY,
                                       -INFINITY}[static_cast<size_t>(value)];
        return has_sign ? value - 20 : value;
    });
}

std::string bits_of(const Tensor& tensor, size_t position) {
    const size_t bytes = tensor.layout().dtype.element_bytes();
    return tensor.bytes().substr(position * bytes, bytes);
}

// Row `row` of both outputs against the chosen indices of the data.
void expect_row(const Tensor& data, const Tensor& values, const Tensor& indices, size_t row,
                const std::vector<size_t>& wanted) {
    const size_t length = data.layout()[1], size = wanted.size();
    for (size_t i = 0; i < size; ++i) {
        ASSERT_EQ(indices.get(row * size + i), wanted[i])
            << data.layout().dtype.name() << " " << size << " of " << length;
        ASSERT_EQ(bits_of(values, row * size + i), bits_of(data, row * length + wanted[i]));
    }
}

TEST(Argsort, SortsByValueThenIndex) {
    std::mt19937 random(10);
    for (size_t length : Sizes{1, 2, 3, 16, 17, 100, 1000})
        for (bool descending : {false, true})
            for (kern::HandleLevel level : LEVELS) {
                Tensor src({3, length}, F32);
                fill_with_ties(src, random);
                const Tensor dst({3, length}, F32), indices({3, length}, I32);
                const auto order = descending ? Order::DESCENDING : Order::ASCENDING;
                EXPECT_EQ(run_operator<Argsort>(level, {order}, src, dst, indices), 0u);
                for (size_t row = 0; row < 3; ++row)
                    expect_row(src, dst, indices, row, sorted_indices(src, row, descending));
            }
}

void top_k(Mode mode, int32_t k, const Tensor& data, const Tensor& values, const Tensor& indices,
           kern::HandleLevel level) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<TopK>();
    op->param().mode = mode;
    const size_t bytes =
        op->workspace_in_bytes(k, data.layout(), values.layout(), indices.layout());
    EXPECT_EQ(bytes, data.layout()[1] * 8);
    const GuardedBuffer workspace(bytes);
    op->exec(k, data.raw(), values.raw(), indices.raw(), {workspace.data(), bytes});
}

void expect_top_k(const Tensor& data, int32_t k, kern::HandleLevel level) {
    const auto size = static_cast<size_t>(std::abs(k));
    const DType dtype = data.layout().dtype;
    const Tensor kth({3}, dtype), none({1}, I32);
    const Tensor values({3, size}, dtype), indices({3, size}, I32);
    const Tensor any_values({3, size}, dtype), any_indices({3, size}, I32);
    top_k(Mode::KTH_VALUE, k, data, kth, none, level);
    top_k(Mode::ORDERED, k, data, values, indices, level);
    top_k(Mode::UNORDERED, k, data, any_values, any_indices, level);
    for (size_t row = 0; row < 3; ++row) {
        auto wanted = sorted_indices(data, row, k < 0);
        wanted.resize(size);
        expect_row(data, values, indices, row, wanted);
        ASSERT_EQ(bits_of(kth, row), bits_of(values, row * size + size - 1));
        std::vector<size_t> found(size);
        for (size_t i = 0; i < size; ++i)
            found[i] = static_cast<size_t>(any_indices.get(row * size + i));
        expect_row(data, any_values, any_indices, row, found);
        std::sort(found.begin(), found.end());
        std::sort(wanted.begin(), wanted.end());
        ASSERT_EQ(found, wanted);
    }
}

TEST(TopK, EveryModeDtypeAndSign) {
    std::mt19937 random(11);
    for (DType dtype : number_types())
        for (const auto& [length, counts] : std::vector<std::pair<size_t, std::vector<int32_t>>>{
                 {1, {1}}, {2, {1, 2}}, {50, {1, 7, 49, 50}}, {300, {3, 150}}})
            for (int32_t count : counts)
                for (int32_t k : {count, -count})
                    for (kern::HandleLevel level : LEVELS) {
                        Tensor data({3, length}, dtype);
                        fill_with_ties(data, random);
                        expect_top_k(data, k, level);
                    }
}

}  // namespace
}  // namespace kern_test
