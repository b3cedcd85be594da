#pragma once

#include <atomic>
#include <mutex>
#include <string>

namespace Kestrion {

/// What a progress display sees of one task: steps, steps done, description, and the cancel and
/// finished flags. Shared between the worker that runs the task (through its ProgressTask) and
/// the displays, so every member is safe to use from any thread, also after the task finished.
class ProgressTaskState {
public:
    ProgressTaskState(int steps, std::string description);

    /// The number of steps; 0 or less means the amount of work is unknown.
    int steps() const { return m_steps.load(); }
    int done() const { return m_done.load(); }
    /// done / steps within [0, 1], or -1 when the number of steps is unknown.
    double fraction() const;
    std::string description() const;
    bool isCanceled() const { return m_canceled.load(); }
    bool isFinished() const { return m_finished.load(); }

    /// Asks the worker to stop; it sees the request through ProgressTask::wasCanceled().
    void cancel() { m_canceled.store(true); }

    // Changes made by the task's owner; each returns whether something changed.
    bool setSteps(int steps);
    bool setDone(int done);
    bool setDescription(const std::string& description);
    bool finish();

private:
    std::atomic<int> m_steps;
    std::atomic<int> m_done{0};
    std::atomic<bool> m_canceled{false};
    std::atomic<bool> m_finished{false};
    mutable std::mutex m_mutex; // the description is written by the worker and read by displays
    std::string m_description;
};

} // namespace Kestrion
