// The base of objects that hold resources of a node. Each registers itself in a process-wide ring,
// so that at process exit all of them give their resources back, the newest first, before the nodes
// go. Objects may be made and destroyed on any thread, but no other thread may destroy one while
// the process exits.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace orb {

class NodeBoundObject {
public:
    NodeBoundObject();
    virtual ~NodeBoundObject();
    NodeBoundObject(const NodeBoundObject&) = delete;
    NodeBoundObject& operator=(const NodeBoundObject&) = delete;

    bool is_finalized() const { return m_state.load(std::memory_order_acquire) == FINALIZED; }

    // Finalizes every registered object, newest first.
    static void finalize_all();

protected:
    // Gives back what the object holds of its node. Called once, at process exit, on an object that
    // is still alive then; afterwards the object is only destroyed. The pointer returned, if any,
    // keeps the object alive for the call.
    virtual std::shared_ptr<void> on_node_finalize() = 0;
    // Using a finalized object stops the process.
    void check_not_finalized() const;

private:
    enum State : uint32_t { ALIVE = 0, FINALIZING = 1, FINALIZED = 2 };
    void finalize();
    void unlink();

    std::atomic<State> m_state{ALIVE};
    // The neighbours in the ring, both null once the object has left it.
    NodeBoundObject* m_previous = nullptr;
    NodeBoundObject* m_next = nullptr;
};

}  // namespace orb
