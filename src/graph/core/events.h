// Events that a graph gives out to whoever observes it. Handlers run on the thread that uses the
// graph. Those of a run are called while it is being started or ended, so they must neither execute
// nor compile, which stops the process.
#pragma once

#include <functional>
#include <map>
#include <memory>

namespace orb {

class CompiledFunction;
class GraphOperator;

template <typename Event>
class EventList {
public:
    using Handler = std::function<void(const Event&)>;

    // Returns a number to remove the handler with.
    size_t connect(Handler handler) {
        m_handlers.emplace(m_next, std::make_shared<const Handler>(std::move(handler)));
        return m_next++;
    }
    void disconnect(size_t number) { m_handlers.erase(number); }
    // A handler may connect and disconnect, itself too: it stays until it has returned.
    void signal(const Event& event) const {
        for (auto it = m_handlers.begin(); it != m_handlers.end();) {
            const auto [number, handler] = *it;
            (*handler)(event);
            it = m_handlers.upper_bound(number);
        }
    }

private:
    size_t m_next = 0;
    std::map<size_t, std::shared_ptr<const Handler>> m_handlers;
};

// An operator came into the graph; with `is_dedup`, an equal one was there and is given instead.
struct OperatorInsertedEvent {
    GraphOperator* op;
    bool is_dedup;
};
// The tasks of an operator are about to be made, or have been made.
struct OperatorBeginEvent {
    GraphOperator* op;
};
struct OperatorEndEvent {
    GraphOperator* op;
};
struct BeforeRunEvent {
    CompiledFunction* function;
};
struct RunFinishedEvent {
    CompiledFunction* function;
    double seconds;  // 0 when timing is off
};

struct GraphEvents {
    EventList<OperatorInsertedEvent> operator_inserted;
    EventList<OperatorBeginEvent> operator_begin;
    EventList<OperatorEndEvent> operator_end;
    EventList<BeforeRunEvent> before_run;
    EventList<RunFinishedEvent> run_finished;
};

}  // namespace orb
