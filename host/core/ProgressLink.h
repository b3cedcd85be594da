#pragma once

#include <memory>
#include <mutex>
#include <vector>

namespace Kestrion {

class Progress;
class ProgressTaskState;

/// The connection between a Progress and its tasks, shared by both so that a task can tell
/// whether its Progress still exists. Used only by Progress and ProgressTask.
class ProgressLink {
public:
    enum class Event { Added, Changed, Finished };

    explicit ProgressLink(Progress* progress);

    /// Forwards an event to the Progress, if still attached. Added puts the task in the list of
    /// unfinished tasks, Finished takes it out.
    void notify(const std::shared_ptr<ProgressTaskState>& task, Event event);
    std::vector<std::shared_ptr<ProgressTaskState>> tasks() const;
    /// After this returns no notification is running or will start.
    void detach();

private:
    // Held while notifying: it serialises the notifications of one Progress and lets detach()
    // wait for a running one. Recursive, because a notification may ask for tasks() on the same
    // thread.
    mutable std::recursive_mutex m_mutex;
    Progress* m_progress;
    std::vector<std::shared_ptr<ProgressTaskState>> m_tasks;
};

} // namespace Kestrion
