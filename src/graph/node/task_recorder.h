// Captures the tasks given to a node, to run them again later. No node of this build has recorders
// yet: inline nodes never hold a task back.
#pragma once

namespace orb {

class TaskRecorder {
public:
    virtual ~TaskRecorder() = default;
    // Between these two, tasks are dropped and memory may be allocated.
    virtual void begin_dry_run() = 0;
    virtual void end_dry_run() = 0;
    virtual void stop() = 0;
    virtual void replay() = 0;
};

}  // namespace orb
