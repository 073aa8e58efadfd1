#include "kernels/handle.h"

#include <atomic>
#include <cstdlib>

#include "kernels/check.h"
#include "kernels/checked_math.h"
#include "kernels/operators/relayout.h"

namespace kern {
namespace {

std::atomic<size_t> naive_image_pitch_alignment{1};

}  // namespace

KernelOperator::~KernelOperator() {
    m_handle->on_operator_destroyed(this);
}

KernelHandle::KernelHandle(ComputingHandle computing, HandleLevel level)
    : m_computing(std::move(computing)), m_level(level) {
    KERN_CHECK(m_computing.dispatcher);
}

KernelHandle::~KernelHandle() {
    m_relayout.reset();
    if (m_on_destroy)
        m_on_destroy();
    m_alive = 0;
}

size_t KernelHandle::image_pitch_alignment() const {
    KERN_CHECK(m_level == HandleLevel::NAIVE);
    return naive_image_pitch_alignment;
}

Relayout* KernelHandle::relayout_operator() {
    const std::lock_guard<std::mutex> lock(m_cached_operators_mutex);
    if (!m_relayout)
        m_relayout = create_shared_relayout();
    return m_relayout.get();
}

void KernelHandle::set_destructor(std::function<void()> callback) {
    KERN_CHECK(!m_on_destroy);
    m_on_destroy = std::move(callback);
}

void KernelHandle::set_operator_destructor_callback(std::function<void(KernelOperator*)> callback) {
    KERN_CHECK(!m_on_operator_destroyed);
    m_on_operator_destroyed = std::move(callback);
}

void KernelHandle::on_operator_destroyed(KernelOperator* op) const {
    if (m_alive != ALIVE)
        std::abort();
    if (m_on_operator_destroyed)
        m_on_operator_destroyed(op);
}

void set_naive_image_pitch_alignment(size_t bytes) {
    KERN_CHECK(is_power_of_two(bytes));
    naive_image_pitch_alignment = bytes;
}

std::unique_ptr<KernelHandle> make_handle(const ComputingHandle& computing, int debug_level) {
    if (computing.platform == Platform::OPENCL || computing.platform == Platform::HEXAGON)
        return nullptr;
    KERN_CHECK(computing.platform == Platform::CPU);
    KERN_CHECK(debug_level >= 0 && debug_level <= 2);
    const HandleLevel LEVELS[] = {best_level(), HandleLevel::FALLBACK, HandleLevel::NAIVE};
    return make_handle_of_level(computing, LEVELS[debug_level]);
}

std::unique_ptr<KernelHandle> make_handle_of_level(const ComputingHandle& computing,
                                                   HandleLevel level) {
    switch (level) {
        case HandleLevel::NAIVE:
        case HandleLevel::FALLBACK:
        case HandleLevel::ARMV7:
            break;
        case HandleLevel::X86:
            KERN_CHECK(best_level() == HandleLevel::X86);
            break;
        default:
            KERN_FAIL();
    }
    return std::make_unique<KernelHandle>(computing, level);
}

KernelHandle* inplace_handle() {
    // Never destroyed: operators made from it may die in static destructors.
    static KernelHandle* handle =
        make_handle({Platform::CPU, std::make_shared<InlineDispatcher>()}, 0).release();
    return handle;
}

}  // namespace kern
