// A piece of work: a closure without arguments that can be moved but not copied. Up to 16 bytes of
// captured data live inside the task; more, or data that is not plain, lives on the heap. Whoever
// holds a task owns it; a task may be made on one thread and run on another, and run many times.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

namespace kern {

class Task final {
public:
    static constexpr size_t CAPACITY = 16;

    Task() = default;
    template <typename Closure,
              typename = std::enable_if_t<!std::is_same_v<std::decay_t<Closure>, Task>>>
    Task(Closure&& closure) : m_actions(&ACTIONS<std::decay_t<Closure>>) {
        using Kept = std::decay_t<Closure>;
        if constexpr (is_inline<Kept>())
            new (m_data) Kept(std::forward<Closure>(closure));
        else
            new (m_data) Kept*(new Kept(std::forward<Closure>(closure)));
    }
    Task(Task&& other) noexcept { take(other); }
    Task& operator=(Task&& other) noexcept {
        if (this != &other) {
            destroy();
            take(other);
        }
        return *this;
    }
    ~Task() { destroy(); }

    explicit operator bool() const { return m_actions != nullptr; }
    // Running an empty task ends the process.
    void operator()() const {
        if (!m_actions)
            std::abort();
        m_actions->run(m_data);
    }

private:
    struct Actions {
        void (*run)(void* data);
        void (*destroy)(void* data);  // null where there is nothing to destroy
    };

    // What is kept inside can be moved as bytes, so that moving a task calls nothing.
    template <typename Closure>
    static constexpr bool is_inline() {
        return sizeof(Closure) <= CAPACITY && alignof(Closure) <= ALIGNMENT &&
               std::is_trivially_copyable_v<Closure> && std::is_trivially_destructible_v<Closure>;
    }
    template <typename Closure>
    static Closure& closure_in(void* data) {
        if constexpr (is_inline<Closure>())
            return *std::launder(static_cast<Closure*>(data));
        else
            return **std::launder(static_cast<Closure**>(data));
    }
    template <typename Closure>
    static void run_closure(void* data) {
        closure_in<Closure>(data)();
    }
    template <typename Closure>
    static void delete_closure(void* data) {
        delete &closure_in<Closure>(data);
    }
    template <typename Closure>
    static constexpr Actions ACTIONS = {run_closure<Closure>,
                                        is_inline<Closure>() ? nullptr : delete_closure<Closure>};

    void take(Task& other) noexcept {
        std::memcpy(m_data, other.m_data, CAPACITY);
        m_actions = std::exchange(other.m_actions, nullptr);
    }
    void destroy() {
        if (m_actions && m_actions->destroy)
            m_actions->destroy(m_data);
    }

    static constexpr size_t ALIGNMENT = 8;
    alignas(ALIGNMENT) mutable unsigned char m_data[CAPACITY];
    const Actions* m_actions = nullptr;
};

}  // namespace kern
