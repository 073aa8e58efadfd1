// Where kernels hand their work: a queue of tasks that run in the order of submission.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

namespace kern {

using Task = std::function<void()>;

class CpuDispatcher {
public:
    virtual ~CpuDispatcher() = default;
    // Takes a task; an empty one ends the process. May be called from any thread.
    virtual void dispatch(Task&& task) = 0;
    // Waits until all tasks given so far have run.
    virtual void sync() = 0;
    uint32_t get_nr_dispatched() const { return m_nr_dispatched; }

protected:
    std::atomic<uint32_t> m_nr_dispatched{0};
};

// Runs each task at once in the calling thread, so nothing is ever left to wait for. What a task
// throws passes to the caller of `dispatch`.
class InlineDispatcher final : public CpuDispatcher {
public:
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
