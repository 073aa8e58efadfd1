#include "graph/node/node_bound_object.h"

#include <mutex>

#include "graph/node/spin_lock.h"
#include "kernels/check.h"

namespace orb {
namespace {

// Constant-initialised and never destroyed, because objects come and go in static constructors and
// destructors too.
SpinLock ring_lock;
NodeBoundObject* newest = nullptr;  // its m_next is the second newest; the oldest's is the newest

}  // namespace

NodeBoundObject::NodeBoundObject() {
    const std::lock_guard<SpinLock> lock(ring_lock);
    if (newest) {
        m_next = newest;
        m_previous = newest->m_previous;
        m_previous->m_next = this;
        m_next->m_previous = this;
    } else {
        m_next = m_previous = this;
    }
    newest = this;
}

NodeBoundObject::~NodeBoundObject() {
    const std::lock_guard<SpinLock> lock(ring_lock);
    unlink();
}

void NodeBoundObject::unlink() {
    if (!m_next)
        return;
    if (newest == this)
        newest = m_next == this ? nullptr : m_next;
    m_previous->m_next = m_next;
    m_next->m_previous = m_previous;
    m_next = m_previous = nullptr;
}

void NodeBoundObject::finalize_all() {
    for (;;) {
        NodeBoundObject* object = nullptr;
        {
            const std::lock_guard<SpinLock> lock(ring_lock);
            object = newest;
            if (!object)
                return;
            object->unlink();
        }
        object->finalize();
    }
}

void NodeBoundObject::finalize() {
    KERN_CHECK(m_state.load() == ALIVE);
    m_state = FINALIZING;
    // Outlives the last access to this object, which may have no other owner left.
    const std::shared_ptr<void> keep_alive = on_node_finalize();
    m_state = FINALIZED;
}

void NodeBoundObject::check_not_finalized() const {
    KERN_CHECK(!is_finalized());
}

}  // namespace orb
