// A CompNode names a place where computation runs and memory lives. It is a value handle of one
// pointer; the implementation objects live until the process ends and handles never own them. Any
// thread may use any node.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "kernels/dispatcher.h"

namespace orb {

class CompNodeEnv;
class CompNodeEvent;
class CompNodeImpl;
class TaskRecorder;

class CompNode {
public:
    enum class DeviceType : uint32_t {
        XPU = 0,
        GPU = 1,
        CPU = 2,
        FPGA = 3,
        OPENCL = 4,
        HEXAGON = 5
    };

    struct Locator {
        static constexpr int32_t DEVICE_ANY = -1;  // written "x"
        static constexpr int32_t DEVICE_CPU_DEFAULT = -1024;
        static constexpr int32_t STREAM_COPY = -1;
        static constexpr int32_t STREAM_REMOTE_SEND = -2;
        static constexpr int32_t STREAM_LOOP_SWAP = -3;

        DeviceType type = DeviceType::XPU;
        int32_t device = DEVICE_ANY;
        int32_t stream = 0;

        // Reads texts such as "cpu:default", "cpu2:1", "xpux"; a malformed one stops the process.
        static Locator parse(const std::string& text);
        // For texts of strangers: nothing where `parse` would stop the process, and for numbers
        // that do not fit, which it lets wrap.
        static std::optional<Locator> try_parse(const std::string& text);
        std::string to_string() const;
        // Whether a logical locator of this kind can stand for a CPU node.
        bool can_name_cpu() const;
        // The worker that executes what is asked of this logical locator.
        Locator to_physical() const;
        // From now on the logical device of the type stands for this physical one; for all threads.
        static void map_device(DeviceType type, int32_t logical, int32_t physical);

        friend bool operator==(const Locator& a, const Locator& b) {
            return a.type == b.type && a.device == b.device && a.stream == b.stream;
        }
    };

    CompNode() = default;  // the invalid node
    explicit CompNode(CompNodeImpl* impl) : m_impl(impl) {}

    // A node of the physical locator under the logical name; made at first use.
    static CompNode load(const Locator& physical, const Locator& logical);
    // Parses, resolves and loads.
    static CompNode load(const std::string& text);
    // The process-wide node that runs every task at once in the calling thread.
    static CompNode default_cpu();

    bool valid() const { return m_impl != nullptr; }
    // Its tasks run at once in the thread that gives them; it has no worker.
    bool is_inline() const;
    CompNodeImpl* impl() const { return m_impl; }
    friend bool operator==(CompNode a, CompNode b) { return a.m_impl == b.m_impl; }
    friend bool operator!=(CompNode a, CompNode b) { return a.m_impl != b.m_impl; }

    // Memory of the node, aligned to `memory_alignment()`; a failed allocation stops the process.
    void* alloc_device(size_t size) const;
    void free_device(void* ptr) const;
    void* alloc_host(size_t size) const;
    void free_host(void* ptr) const;

    // Copies are ordered after the tasks given to the node before; they may not have happened on
    // return.
    void copy_to_host(void* host_dest, const void* device_source, size_t size) const;
    void copy_to_device(void* device_dest, const void* host_source, size_t size) const;
    void copy_to_peer(CompNode dest_node, void* dest, const void* source, size_t size) const;

    void sync() const;
    size_t memory_alignment() const;
    // Nodes with the same tag share one address space.
    const void* memory_space() const;
    std::pair<size_t, size_t> memory_status() const;  // total, available bytes
    Locator locator() const;
    Locator locator_logical() const;
    // The node of this one's locators on another stream.
    CompNode with_stream(int32_t stream) const;
    std::unique_ptr<CompNodeEvent> create_event(uint32_t flags = 0) const;
    std::unique_ptr<TaskRecorder> make_recorder() const;
    void add_callback(kern::Task&& task) const;
    CompNodeEnv& env() const;
    std::string to_string() const { return locator().to_string(); }

private:
    CompNodeImpl* m_impl = nullptr;
};

struct CompNodeHash {
    size_t operator()(CompNode node) const { return std::hash<const void*>{}(node.impl()); }
};

}  // namespace orb
