#include "search/collection.h"

#include <exception>
#include <thread>
#include <utility>

namespace search {

namespace {

// Calls `work` with the numbers below `count`, each in a thread of its own, the first in this one.
// When all have ended, the exception of the lowest number that had one is thrown.
template <typename Work>
void run_in_parallel(size_t count, const Work& work) {
    std::vector<std::exception_ptr> thrown(count);
    const auto run = [&](size_t number) noexcept {
        try {
            work(number);
        } catch (...) {
            thrown[number] = std::current_exception();
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(count);
    for (size_t number = 1; number < count; ++number) {
        try {
            threads.emplace_back(run, number);
        } catch (...) {
            thrown[number] = std::current_exception();
        }
    }
    run(0);
    for (std::thread& thread : threads)
        thread.join();
    for (const std::exception_ptr& exception : thrown)
        if (exception)
            std::rethrow_exception(exception);
}

}  // namespace

template <typename T>
Collection<T>::Collection(const std::vector<Slice>& slices, size_t nr_shards,
                          const vekfind::Settings& settings)
    : m_shards(nr_shards) {
    const std::vector<std::vector<Slice>> parts = split(slices, nr_shards);
    run_in_parallel(nr_shards, [&](size_t number) {
        m_shards[number] = std::make_unique<Shard<T>>(parts[number], settings);
    });
}

template <typename T>
uint64_t Collection<T>::nr_rows() const {
    uint64_t sum = 0;
    for (const auto& shard : m_shards)
        sum += shard->nr_rows();
    return sum;
}

template <typename T>
uint64_t Collection<T>::nr_changed() const {
    uint64_t sum = 0;
    for (const auto& shard : m_shards)
        sum += shard->nr_changed();
    return sum;
}

template <typename T>
Result Collection<T>::search(const T* queries, size_t nr_query, size_t k, float threshold) const {
    std::vector<Result> results(m_shards.size(), Result(0, k));
    run_in_parallel(m_shards.size(), [&](size_t number) {
        results[number] = m_shards[number]->search(queries, nr_query, k, threshold);
    });
    for (size_t number = 1; number < results.size(); ++number)
        merge(results[0], results[number]);
    return std::move(results[0]);
}

template class Collection<float>;
template class Collection<int8_t>;

}  // namespace search
