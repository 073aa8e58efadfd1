#include "kernels/sorting.h"

#include <algorithm>
#include <numeric>
#include <set>

#include "tests/kernels/kernel_test_util.h"

namespace kern_test {
namespace {

using kern::Argsort;
using kern::TopK;
using Order = Argsort::Order;
using Mode = TopK::Mode;

const DType F32 = DType::Float32(), I32 = DType::Int32();

void argsort(Order order, const Tensor& src, const Tensor& dst, const Tensor& indices,
             kern::HandleLevel level = FALLBACK) {
    EXPECT_EQ(run_operator<Argsort>(level, Argsort::Param{order}, src, dst, indices), 0u);
}

void top_k(Mode mode, int32_t k, const Tensor& data, const Tensor& values, const Tensor& indices,
           kern::HandleLevel level = FALLBACK) {
    const auto handle = make_handle(level);
    const auto op = handle->create_operator<TopK>();
    op->param().mode = mode;
    const size_t bytes =
        op->workspace_in_bytes(k, data.layout(), values.layout(), indices.layout());
    EXPECT_EQ(bytes, data.layout()[1] * 8);
    const GuardedBuffer workspace(bytes);
    op->exec(k, data.raw(), values.raw(), indices.raw(), {workspace.data(), bytes});
}

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

TEST(Argsort, SortsByValueThenIndex) {
    std::mt19937 random(10);
    for (size_t length : Sizes{1, 2, 3, 16, 17, 100, 1000})
        for (bool descending : {false, true})
            for (kern::HandleLevel level : LEVELS) {
                Tensor src({3, length}, F32);
                fill_with_ties(src, random);
                const Tensor dst({3, length}, F32), indices({3, length}, I32);
                argsort(descending ? Order::DESCENDING : Order::ASCENDING, src, dst, indices,
                        level);
                for (size_t row = 0; row < 3; ++row) {
                    const auto wanted = sorted_indices(src, row, descending);
                    for (size_t i = 0; i < length; ++i) {
                        ASSERT_EQ(indices.get(row * length + i), wanted[i]) << length;
                        ASSERT_EQ(bits_of(dst, row * length + i),
                                  bits_of(src, row * length + wanted[i]));
                    }
                }
            }
}

TEST(Argsort, WrongArgumentsStopTheProcess) {
    const Tensor src({2, 3}, F32), dst({2, 3}, F32), indices({2, 3}, I32);
    const auto ascending = [](const Tensor& a, const Tensor& b, const Tensor& c) {
        argsort(Order::ASCENDING, a, b, c);
    };
    EXPECT_DEATH(argsort(static_cast<Order>(2), src, dst, indices), "");
    EXPECT_DEATH(ascending(Tensor({2, 3}, I32), Tensor({2, 3}, I32), indices), "");
    EXPECT_DEATH(ascending(src, dst, Tensor({2, 3}, F32)), "");
    EXPECT_DEATH(ascending(src, dst, Tensor({3, 2}, I32)), "");
    EXPECT_DEATH(ascending(src, Tensor(strided({2, 3}, {4, 1}, F32)), indices), "");
    EXPECT_DEATH(ascending(Tensor({6}, F32), Tensor({6}, F32), Tensor({6}, I32)), "");
}

TEST(TopK, EveryModeDtypeAndSign) {
    std::mt19937 random(11);
    for (DType dtype : number_types())
        for (const auto& [length, counts] : std::vector<std::pair<size_t, std::vector<int32_t>>>{
                 {1, {1}}, {2, {1, 2}}, {50, {1, 7, 49, 50}}, {300, {3, 150}}})
            for (int32_t count : counts)
                for (int32_t k : {count, -count})
                    for (kern::HandleLevel level : LEVELS) {
                        const auto size = static_cast<size_t>(count);
                        Tensor data({3, length}, dtype);
                        fill_with_ties(data, random);
                        const Tensor kth({3}, dtype), none({1}, I32);
                        const Tensor values({3, size}, dtype), indices({3, size}, I32);
                        const Tensor any_values({3, size}, dtype), any_indices({3, size}, I32);
                        top_k(Mode::KTH_VALUE, k, data, kth, none, level);
                        top_k(Mode::ORDERED, k, data, values, indices, level);
                        top_k(Mode::UNORDERED, k, data, any_values, any_indices, level);
                        for (size_t row = 0; row < 3; ++row) {
                            const auto wanted = sorted_indices(data, row, k < 0);
                            const size_t data_row = row * length, out_row = row * size;
                            ASSERT_EQ(bits_of(kth, row),
                                      bits_of(data, data_row + wanted[size - 1]));
                            std::set<double> wanted_set, found_set;
                            for (size_t i = 0; i < size; ++i) {
                                ASSERT_EQ(indices.get(out_row + i), wanted[i])
                                    << dtype.name() << " k " << k << " of " << length;
                                ASSERT_EQ(bits_of(values, out_row + i),
                                          bits_of(data, data_row + wanted[i]));
                                const double found = any_indices.get(out_row + i);
                                ASSERT_EQ(bits_of(any_values, out_row + i),
                                          bits_of(data, data_row + static_cast<size_t>(found)));
                                wanted_set.insert(static_cast<double>(wanted[i]));
                                found_set.insert(found);
                            }
                            ASSERT_EQ(found_set, wanted_set);
                        }
                    }
}

TEST(TopK, WrongArgumentsStopTheProcess) {
    const Tensor data({2, 3}, F32), values({2, 2}, F32), indices({2, 2}, I32), kth({2}, F32);
    for (int32_t k : {0, 4, -4, INT32_MIN})
        EXPECT_DEATH(top_k(Mode::KTH_VALUE, k, data, kth, indices), "") << k;
    EXPECT_DEATH(top_k(static_cast<Mode>(3), 2, data, values, indices), "");
    EXPECT_DEATH(top_k(Mode::ORDERED, 1, data, values, indices), "");
    EXPECT_DEATH(top_k(Mode::ORDERED, 2, data, values, Tensor({2, 2}, F32)), "");
    EXPECT_DEATH(top_k(Mode::ORDERED, 2, data, Tensor({2, 2}, I32), indices), "");
    EXPECT_DEATH(top_k(Mode::KTH_VALUE, 2, data, values, indices), "");
    EXPECT_DEATH(top_k(Mode::ORDERED, 2, Tensor({2, 3}, DType::QuantizedS8(1)),
                       Tensor({2, 2}, DType::QuantizedS8(1)), indices),
                 "");
    const auto handle = make_handle(NAIVE);
    const auto op = handle->create_operator<TopK>();
    alignas(8) uint8_t memory[32];
    op->exec(2, data.raw(), kth.raw(), {}, {memory, 24});
    EXPECT_DEATH(op->exec(2, data.raw(), kth.raw(), {}, {memory, 23}), "");
    EXPECT_DEATH(op->exec(2, data.raw(), kth.raw(), {}, {memory + 4, 24}), "");
}

}  // namespace
}  // namespace kern_test
