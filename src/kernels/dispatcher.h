// Where kernels hand their work: a queue of tasks that run in the order of submission.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "kernels/task.h"

namespace kern {

class CpuDispatcher {
public:
    virtual ~CpuDispatcher() = default;
    // Takes a task; an empty one ends the process. May be called from any thread.
    virtual void dispatch(Task&& task) = 0;
    // Waits until all tasks given so far have run.
    virtual void sync() = 0;
    // Wraps.
    uint32_t get_nr_dispatched() const { return m_nr_dispatched.load(std::memory_order_relaxed); }

    // The way of kernels and copies: runs the closure at once, without making a task of it, on an
    // inline dispatcher and inside a step of this one; otherwise dispatches it.
    template <typename Closure>
    void submit(Closure&& closure) {
        if (m_inline || in_step()) {
            count();
            closure();
        } else {
            dispatch(Task(std::forward<Closure>(closure)));
        }
    }

protected:
    enum class Kind { QUEUED, INLINE };
    explicit CpuDispatcher(Kind kind = Kind::QUEUED) : m_inline(kind == Kind::INLINE) {}

    // The calling thread is in a `DispatcherStep` of this dispatcher.
    bool in_step() const;
    // Relaxed: a statistic, which orders nothing.
    void count() { m_nr_dispatched.fetch_add(1, std::memory_order_relaxed); }

    std::atomic<uint32_t> m_nr_dispatched{0};

private:
    const bool m_inline;
};

// While one lives, its thread stands at the dispatcher's place in the order of tasks: it runs one
// of them, or in their stead. So what it submits there is due at once. Other threads, and other
// dispatchers that share the worker, are not affected. Steps may be nested.
class DispatcherStep final {
public:
    explicit DispatcherStep(const CpuDispatcher& dispatcher);
    ~DispatcherStep();
    DispatcherStep(const DispatcherStep&) = delete;
    DispatcherStep& operator=(const DispatcherStep&) = delete;

    // Whether the calling thread is in a step of any dispatcher.
    static bool is_active();

private:
    friend class CpuDispatcher;
    const CpuDispatcher& m_dispatcher;
    const DispatcherStep* m_outer;
};

// Runs each task at once in the calling thread, so nothing is ever left to wait for. What a task
// throws passes to the caller of `dispatch`.
class InlineDispatcher final : public CpuDispatcher {
public:
    InlineDispatcher() : CpuDispatcher(Kind::INLINE) {}
    void dispatch(Task&& task) override;
    void sync() override {}
};

// The platforms that a computing device can have; only CPU has kernels here.
enum class Platform : uint32_t { CPU = 2, OPENCL = 4, HEXAGON = 5 };

// A computing device as the kernel library sees it.
struct ComputingHandle {
    Platform platform = Platform::CPU;
    std::shared_ptr<CpuDispatcher> dispatcher;
};

}  // namespace kern
