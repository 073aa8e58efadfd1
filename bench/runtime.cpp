// What does it cost to hand work to a worker node? Tasks per second beside a plain queue with a
// mutex and a condition, and beside a counter that two threads share; the time from dispatch to
// start beside a bare futex wake; round trips; allocations per task.
#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "bench/allocations.h"
#include "graph/node/comp_node.h"
#include "graph/node/comp_node_event.h"

namespace {

using orb::CompNode;
using Clock = std::chrono::steady_clock;

constexpr size_t NR_TASKS = 1000000;

CompNode worker_node(int stream = 0) {
    const CompNode::Locator locator{CompNode::DeviceType::CPU, 0, stream};
    return CompNode::load(locator, locator);
}

class NodeQueue {
public:
    void add(kern::Task&& task) { m_node.add_callback(std::move(task)); }
    void sync() { m_node.sync(); }

private:
    CompNode m_node = worker_node();
};

// What one would write first.
class PlainQueue {
public:
    PlainQueue() : m_worker([this] { work(); }) {}
    ~PlainQueue() {
        add(kern::Task());
        m_worker.join();
    }
    void add(kern::Task&& task) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_tasks.push_back(std::move(task));
            ++m_nr_left;
        }
        m_added.notify_one();
    }
    void sync() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_done.wait(lock, [this] { return m_nr_left == 0; });
    }

private:
    void work() {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_added.wait(lock, [this] { return !m_tasks.empty(); });
            const kern::Task task = std::move(m_tasks.front());
            m_tasks.pop_front();
            if (!task)
                return;
            lock.unlock();
            task();
            lock.lock();
            if (--m_nr_left == 0)
                m_done.notify_all();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_added, m_done;
    std::deque<kern::Task> m_tasks;
    size_t m_nr_left = 0;
    std::thread m_worker;
};

// Runs `work` on so many threads at the same time and waits for them.
template <typename Work>
void on_threads(size_t nr_threads, Work&& work) {
    std::atomic<size_t> nr_missing{nr_threads};
    std::vector<std::thread> threads;
    for (size_t t = 0; t < nr_threads; ++t) {
        threads.emplace_back([&] {
            --nr_missing;
            while (nr_missing != 0)
                std::this_thread::yield();
            work();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

template <typename Queue>
void empty_tasks(benchmark::State& state) {
    Queue queue;
    const auto nr_producers = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        on_threads(nr_producers, [&] {
            for (size_t i = 0; i < NR_TASKS / nr_producers; ++i)
                queue.add([] {});
        });
        queue.sync();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(NR_TASKS));
}
void by_producers(benchmark::internal::Benchmark* rows) {
    for (const int nr_producers : {1, 2, 4})
        rows->Arg(nr_producers);
    rows->MeasureProcessCPUTime()->UseRealTime();
}
BENCHMARK_TEMPLATE(empty_tasks, NodeQueue)->Apply(by_producers);
BENCHMARK_TEMPLATE(empty_tasks, PlainQueue)->Apply(by_producers);

// The increments of both threads together.
void shared_counter(benchmark::State& state) {
    constexpr size_t NR_INCREMENTS = 20 * NR_TASKS;
    std::atomic<uint64_t> counter{0};
    for (auto _ : state) {
        on_threads(2, [&] {
            for (size_t i = 0; i < NR_INCREMENTS / 2; ++i)
                counter.fetch_add(1);
        });
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(NR_INCREMENTS));
}
BENCHMARK(shared_counter)->MeasureProcessCPUTime()->UseRealTime();

void allocations(benchmark::State& state) {
    constexpr int BATCH = 1000;
    const CompNode node = worker_node();
    const auto batch = [&] {
        for (int i = 0; i < BATCH; ++i)
            node.add_callback([i, &node] { benchmark::DoNotOptimize(&node + i); });
        node.sync();
    };
    for (int i = 0; i < 100; ++i)
        batch();
    const int64_t before = nr_allocations.load();
    for (auto _ : state)
        batch();
    state.counters["per_task"] = static_cast<double>(nr_allocations.load() - before) /
                                 static_cast<double>(state.iterations() * BATCH);
    state.SetItemsProcessed(state.iterations() * BATCH);
}
BENCHMARK(allocations)->UseRealTime();

// Where another thread writes the time at which it began.
class Start {
public:
    void set() { m_time.store(Clock::now().time_since_epoch().count()); }
    // Waits for the time and takes it.
    Clock::time_point take() {
        Clock::rep time = 0;
        while ((time = m_time.exchange(0)) == 0)
            std::this_thread::yield();
        return Clock::time_point(Clock::duration(time));
    }

private:
    std::atomic<Clock::rep> m_time{0};
};

// The times of single events; their median tells more than their mean, which other programs spoil.
class Times {
public:
    explicit Times(benchmark::State& state) : m_state(state) {}
    void add(Clock::duration time) {
        const double seconds = std::chrono::duration<double>(time).count();
        m_state.SetIterationTime(seconds);
        m_seconds.push_back(seconds);
    }
    ~Times() {
        const auto middle = m_seconds.begin() + static_cast<std::ptrdiff_t>(m_seconds.size() / 2);
        std::nth_element(m_seconds.begin(), middle, m_seconds.end());
        m_state.counters["median"] = *middle;
    }

private:
    benchmark::State& m_state;
    std::vector<double> m_seconds;
};

// With an argument, the worker had so many milliseconds to fall asleep.
void dispatch_to_start(benchmark::State& state) {
    const CompNode node = worker_node();
    Start start;
    Times times(state);
    for (auto _ : state) {
        node.sync();
        std::this_thread::sleep_for(std::chrono::milliseconds(state.range(0)));
        const Clock::time_point begin = Clock::now();
        node.add_callback([&] { start.set(); });
        times.add(start.take() - begin);
    }
}
BENCHMARK(dispatch_to_start)->Arg(0)->UseManualTime();
BENCHMARK(dispatch_to_start)->Arg(20)->Iterations(200)->UseManualTime();

void futex_wake(benchmark::State& state) {
    std::atomic<uint32_t> word{0};
    const auto futex = [&](int operation, uint32_t value) {
        return syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
    };
    Start start;
    std::thread sleeper([&] {
        for (uint32_t seen = 0; seen != UINT32_MAX; seen = word.load()) {
            while (word.load() == seen)
                futex(FUTEX_WAIT_PRIVATE, seen);
            start.set();
        }
    });
    Times times(state);
    for (auto _ : state) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const Clock::time_point begin = Clock::now();
        word.fetch_add(1);
        futex(FUTEX_WAKE_PRIVATE, 1);
        times.add(start.take() - begin);
    }
    word.store(UINT32_MAX);
    futex(FUTEX_WAKE_PRIVATE, 1);
    sleeper.join();
}
BENCHMARK(futex_wake)->Iterations(200)->UseManualTime();

void sync_round_trip(benchmark::State& state) {
    const CompNode node = worker_node();
    for (auto _ : state) {
        node.add_callback([] {});
        node.sync();
    }
}
BENCHMARK(sync_round_trip)->UseRealTime();

void event_round_trip(benchmark::State& state) {
    const auto event = worker_node().create_event();
    for (auto _ : state) {
        event->record();
        event->wait_on_host();
    }
}
BENCHMARK(event_round_trip)->UseRealTime();

// From one worker to the other and back.
void event_ping_pong(benchmark::State& state) {
    constexpr int NR_ROUNDS = 1000;
    const CompNode first = worker_node(), second = worker_node(1);
    const auto ping = first.create_event(), pong = second.create_event();
    for (auto _ : state) {
        for (int i = 0; i < NR_ROUNDS; ++i) {
            ping->record();
            ping->wait_on_node(second);
            pong->record();
            pong->wait_on_node(first);
        }
        first.sync();
    }
    state.SetItemsProcessed(state.iterations() * NR_ROUNDS);
}
BENCHMARK(event_ping_pong)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
