#include "kernels/naive/sorting.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <vector>

#include "kernels/checked_math.h"
#include "kernels/naive/sort_keys.h"
#include "kernels/types/dtype_switch.h"

namespace kern::naive {
namespace {

// Writes the values and the indices that the first `count` keys stand for.
template <typename T, typename Key>
void write_row(const SortKeys& order, const Key* keys, size_t count, const T* row, T* values,
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
    RawTensor data, values, indices;
    UnalignedKey* keys;
};

// Rows of an image may have padding behind them.
template <typename T>
T* row_of(const RawTensor& tensor, size_t row) {
    return tensor.ptr<T>() + static_cast<ptrdiff_t>(row) * tensor.layout.stride[0];
}

// By introspective selection (Musser, 1997), or by a heap of the best keys that is then sorted
// (Williams, 1964).
void select_keys(const TopKTask& task) {
    UnalignedKey* end = task.keys + task.length;
    if (task.mode == TopK::Mode::ORDERED)
        std::partial_sort(task.keys, task.keys + task.count, end);
    else
        std::nth_element(task.keys, task.keys + task.count - 1, end);
}

template <typename T>
void top_k(const TopKTask& task) {
    for (size_t i = 0; i < task.rows; ++i) {
        const T* row = row_of<const T>(task.data, i);
        T* values = row_of<T>(task.values, i);
        task.order.fill(row, task.length, task.keys);
        select_keys(task);
        if (task.mode == TopK::Mode::KTH_VALUE)
            *values = row[task.order.index_of(task.keys[task.count - 1])];
        else
            write_row(task.order, task.keys, task.count, row, values,
                      row_of<int32_t>(task.indices, i));
    }
}

}  // namespace

void ArgsortImpl::exec(const RawTensor& src, const RawTensor& dst, const RawTensor& indices,
                       const Workspace& workspace) {
    check_exec(src.layout, dst.layout, indices.layout, workspace.size);
    const SortKeys order(m_param.order == Order::DESCENDING);
    dispatch([order, src, dst, indices] {
        const size_t length = src.layout[1];
        std::vector<uint64_t> keys(length);
        for (size_t i = 0; i < src.layout[0]; ++i) {
            const float* row = row_of<const float>(src, i);
            order.fill(row, length, keys.data());
            std::sort(keys.begin(), keys.end());  // an introspective sort (Musser, 1997)
            write_row(order, keys.data(), length, row, row_of<float>(dst, i),
                      row_of<int32_t>(indices, i));
        }
    });
}

size_t TopKImpl::workspace_in_bytes(int32_t, const TensorLayout& data, const TensorLayout&,
                                    const TensorLayout&) {
    static_assert(sizeof(UnalignedKey) == 2 * sizeof(int32_t), "a key is a value and an index");
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
                                      static_cast<size_t>(std::abs(int64_t{k})), data, values,
                                      indices, workspace.as<UnalignedKey>()}] { kernel(task); });
}

}  // namespace kern::naive
