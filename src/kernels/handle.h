// A KernelHandle is one computing device as the kernel library sees it: its level of optimisation,
// its dispatcher, and the factory of its operators. A KernelOperator is made from a handle, borrows
// it, and may not outlive it.
//
// Levels form a ladder: a level has its own class for the operators that it does better and
// inherits the rest from the level below. `operator_table.inc` is that ladder, one line per
// operator.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "kernels/dispatcher.h"
#include "kernels/types/layout.h"
#include "kernels/workspace.h"

namespace kern {

// ARM_COMMON is the part of the ladder that all Arm targets share; no handle has it. X86 is a
// branch of its own above FALLBACK. Levels that came later are numbered from 100 on, apart from the
// numbers 2 and 5 to 99, which other programs may give a meaning. ARM64 has its number and nothing
// else yet.
enum class HandleLevel : int32_t {
    NAIVE = 0,
    FALLBACK = 1,
    ARM_COMMON = 3,
    ARMV7 = 4,
    X86 = 100,
    ARM64 = 101,
};

// Alignment in bytes that a level's buffers should have: whole cache lines where vectors are long.
constexpr size_t alignment_of(HandleLevel level) {
    return level == HandleLevel::X86 || level == HandleLevel::ARM64 ? 64 : 32;
}

class KernelHandle;
class Relayout;

class KernelOperator {
public:
    explicit KernelOperator(KernelHandle* handle) : m_handle(handle) {}
    // Aborts the process when the handle is gone already.
    virtual ~KernelOperator();
    KernelOperator(const KernelOperator&) = delete;
    KernelOperator& operator=(const KernelOperator&) = delete;

    // Whether `exec` may run on several threads at once.
    virtual bool is_thread_safe() const { return false; }
    KernelHandle* handle() const { return m_handle; }

protected:
    // Submits the kernel to the handle's dispatcher. The closure owns copies of all it needs: on a
    // queued dispatcher it runs after `exec` has returned.
    template <typename Closure>
    void dispatch(Closure&& kernel) const;

private:
    KernelHandle* m_handle;
};

// Operators with parameters, which hold for the calls of `exec` after they were set.
template <typename P>
class ParamOperator : public KernelOperator {
public:
    using Param = P;

    using KernelOperator::KernelOperator;
    Param& param() { return m_param; }
    const Param& param() const { return m_param; }

protected:
    Param m_param;
};

class KernelHandle {
public:
    KernelHandle(ComputingHandle computing, HandleLevel level);
    virtual ~KernelHandle();
    KernelHandle(const KernelHandle&) = delete;
    KernelHandle& operator=(const KernelHandle&) = delete;

    HandleLevel level() const { return m_level; }
    // Alignment in bytes that buffers of this device should have.
    virtual size_t alignment_requirement() const { return alignment_of(m_level); }
    // Alignment of image rows in bytes; only the naive level has one, elsewhere the call stops the
    // process.
    virtual size_t image_pitch_alignment() const;
    virtual bool layout_is_supported(const TensorLayout& layout) const { return layout.is_dense(); }
    // The device's shared relayout operator, made at first use. Any thread. It is of the fallback
    // level even where a better one exists: it serves the copies between tensors of equal axis
    // order, which are runs of contiguous memory.
    Relayout* relayout_operator();

    // A new operator of the best class that this handle's level has.
    template <typename Operator>
    std::unique_ptr<Operator> create_operator();

    template <typename Closure>
    void dispatch(Closure&& kernel) const {
        m_computing.dispatcher->submit(std::forward<Closure>(kernel));
    }
    void sync() const { m_computing.dispatcher->sync(); }

    // Run at destruction; may be set once.
    void set_destructor(std::function<void()> callback);
    // Given each operator as it dies; may be set once.
    void set_operator_destructor_callback(std::function<void(KernelOperator*)> callback);

private:
    friend class KernelOperator;
    static constexpr uint32_t ALIVE = 0x8595e9d2;

    void on_operator_destroyed(KernelOperator* op) const;
    std::unique_ptr<Relayout> create_shared_relayout();

    volatile uint32_t m_alive = ALIVE;  // volatile: the check must read it after destruction too
    ComputingHandle m_computing;
    HandleLevel m_level;
    std::function<void()> m_on_destroy;
    std::function<void(KernelOperator*)> m_on_operator_destroyed;
    std::mutex m_cached_operators_mutex;
    std::unique_ptr<Relayout> m_relayout;
};

template <typename Closure>
void KernelOperator::dispatch(Closure&& kernel) const {
    m_handle->dispatch(std::forward<Closure>(kernel));
}

// What `image_pitch_alignment` of every naive handle gives from now on, 1 at the start; a power of
// two. Any thread.
void set_naive_image_pitch_alignment(size_t bytes);

// A handle for the device, or null for a platform whose kernels live elsewhere. `debug_level` 0
// takes the best level of this machine (armv7 where there is NEON, x86 on an x86-64 CPU with AVX2
// and FMA, otherwise fallback), 1 fallback, 2 naive; anything else stops the process.
std::unique_ptr<KernelHandle> make_handle(const ComputingHandle& computing, int debug_level);
// The level of a default handle on this machine.
HandleLevel best_level();
// A CPU handle of a given level. Every level but x86 runs on every machine: its vector code is
// compiled for NEON where there is NEON and for the compiler's own vectors elsewhere. Asking for
// x86 on a machine without it stops the process.
std::unique_ptr<KernelHandle> make_handle_of_level(const ComputingHandle& computing,
                                                   HandleLevel level);

// The process-wide handle whose kernels run at once in the calling thread: for kernels that need a
// further operator inside themselves.
KernelHandle* inplace_handle();

}  // namespace kern
