// Exact search as whoever has a BLAS writes it: distances as |r|^2 - 2 q.r (the query's norm
// changes no order), the products by sgemm, a block of rows after the other, and the k nearest of
// each query in a heap. `norms` are those of the rows, computed once.
#include <cblas.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace {

using Heap = std::vector<std::pair<float, int64_t>>;  // the farthest first

void offer(Heap& heap, size_t k, float distance, int64_t row) {
    if (heap.size() == k) {
        if (distance >= heap.front().first)
            return;
        std::pop_heap(heap.begin(), heap.end());
        heap.back() = {distance, row};
    } else {
        heap.emplace_back(distance, row);
    }
    std::push_heap(heap.begin(), heap.end());
}

// Minus twice the products of each query with each row; a query's products are `stride` apart from
// the next one's. One query is a vector, for which a BLAS has a function of its own.
void multiply(const float* rows, size_t nr_rows, size_t dim, const float* queries,
              size_t nr_queries, float* products, size_t stride) {
    const auto count = static_cast<blasint>(nr_rows), depth = static_cast<blasint>(dim);
    if (nr_queries == 1)
        cblas_sgemv(CblasRowMajor, CblasNoTrans, count, depth, -2, rows, depth, queries, 1, 0,
                    products, 1);
    else
        cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasTrans, static_cast<blasint>(nr_queries),
                    count, depth, -2, queries, depth, rows, depth, 0, products,
                    static_cast<blasint>(stride));
}

}  // namespace

extern "C" void blas_norms(const float* rows, size_t nr_rows, size_t dim, float* norms) {
    for (size_t row = 0; row < nr_rows; ++row)
        norms[row] =
            cblas_sdot(static_cast<blasint>(dim), rows + row * dim, 1, rows + row * dim, 1);
}

// The rows' numbers, k for each query, the nearest first.
extern "C" void blas_search(const float* rows, const float* norms, size_t nr_rows, size_t dim,
                            const float* queries, size_t nr_queries, size_t k, size_t block,
                            int64_t* found) {
    std::vector<float> products(nr_queries * block);
    std::vector<Heap> heaps(nr_queries);
    for (size_t first = 0; first < nr_rows; first += block) {
        const size_t count = std::min(block, nr_rows - first);
        multiply(rows + first * dim, count, dim, queries, nr_queries, products.data(), block);
        for (size_t query = 0; query < nr_queries; ++query)
            for (size_t i = 0; i < count; ++i)
                offer(heaps[query], k, norms[first + i] + products[query * block + i],
                      static_cast<int64_t>(first + i));
    }
    for (size_t query = 0; query < nr_queries; ++query) {
        std::sort_heap(heaps[query].begin(), heaps[query].end());
        for (size_t i = 0; i < heaps[query].size(); ++i)
            found[query * k + i] = heaps[query][i].second;
    }
}
