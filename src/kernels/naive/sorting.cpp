#include "kernels/naive/sorting.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <vector>

#include "kernels/checked_math.h"
#include "kernels/dtype_switch.h"
#include "kernels/naive/sort_keys.h"

namespace kern::naive {
namespace {

// Writes the values and the indices that the first `count` keys stand for.
template <typename T>
void write_rows(const SortKeys& order, const uint64_t* keys, size_t count, const T* row, T* values,
                int32_t* indices) {
    for (size_t i = 0; i < count; ++i) {
        const size_t index = order.index_of(keys[i]);
        values[i] = row[index];
        indices[i] = static_cast<int32_t>(index);
    }
}

struct TopKTask {
    TopK::Mode mode;
    SortKeys order;
    size_t rows, length, count;
    const void* data;
    void* values;
    int32_t* indices;
    uint64_t* keys;
};

// By introspective selection (Musser, 1997), or by a heap of the best keys that is then sorted
// (Williams, 1964).
void select_keys(const TopKTask& task) {
    uint64_t* end = task.keys + task.length;
    if (task.mode == TopK::Mode::ORDERED)
        std::partial_sort(task.keys, task.keys + task.count, end);
    else
        std::nth_element(task.keys, task.keys + task.count - 1, end);
}

template <typename T>
void top_k(const TopKTask& task) {
    const T* row = static_cast<const T*>(task.data);
    T* values = static_cast<T*>(task.values);
    for (size_t i = 0; i < task.rows; ++i, row += task.length) {
        task.order.fill(row, task.length, task.keys);
        select_keys(task);
        if (task.mode == TopK::Mode::KTH_VALUE)
            values[i] = row[task.order.index_of(task.keys[task.count - 1])];
        else
            write_rows(task.order, task.keys, task.count, row, values + i * task.count,
                       task.indices + i * task.count);
    }
}

}  // namespace

void ArgsortImpl::exec(const RawTensor& src, const RawTensor& dst, const RawTensor& indices,
                       const Workspace& workspace) {
    check_exec(src.layout, dst.layout, indices.layout, workspace.size);
    const SortKeys order(m_param.order == Order::DESCENDING);
    dispatch([order, rows = src.layout[0], length = src.layout[1], row = src.ptr<const float>(),
              values = dst.ptr<float>(), places = indices.ptr<int32_t>()] {
        std::vector<uint64_t> keys(length);
        for (size_t start = 0; start < rows * length; start += length) {
            order.fill(row + start, length, keys.data());
            std::sort(keys.begin(), keys.end());  // an introspective sort (Musser, 1997)
            write_rows(order, keys.data(), length, row + start, values + start, places + start);
        }
    });
}

size_t TopKImpl::workspace_in_bytes(int32_t, const TensorLayout& data, const TensorLayout&,
                                    const TensorLayout&) {
    static_assert(sizeof(uint64_t) == 2 * sizeof(int32_t), "a key is a value and an index");
    return checked_mul(data[1], 2 * std::max(data.dtype.element_bytes(), sizeof(int32_t)));
}

void TopKImpl::exec(int32_t k, const RawTensor& data, const RawTensor& values,
                    const RawTensor& indices, const Workspace& workspace) {
    check_exec(k, data.layout, values.layout, indices.layout, workspace.size);
    const auto kernel = with_number_type(data.layout.dtype.enum_value(), [](auto tag) {
        return &top_k<typename decltype(tag)::Type>;
    });
    KERN_CHECK(kernel);
    dispatch([kernel, task = TopKTask{m_param.mode, SortKeys(k < 0), data.layout[0], data.layout[1],
                                      static_cast<size_t>(std::abs(int64_t{k})), data.raw_ptr,
                                      values.raw_ptr, indices.ptr<int32_t>(),
                                      workspace.as<uint64_t>()}] { kernel(task); });
}

}  // namespace kern::naive
