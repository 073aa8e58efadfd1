// Captures the tasks given to a node, to run them again later. A node has one recorder at a time;
// it belongs to the thread that made it.
#pragma once

namespace orb {

class TaskRecorder {
public:
    virtual ~TaskRecorder() = default;
    // Between these two, tasks are dropped and memory may be taken and given back, which stops the
    // process at other times of a recording. A dry run comes before the first recorded task.
    virtual void begin_dry_run() = 0;
    virtual void end_dry_run() = 0;
    // Ends the recording: from now on the node works as before.
    virtual void stop() = 0;
    // Runs what was recorded; returns when it has run.
    virtual void replay() = 0;
};

}  // namespace orb
