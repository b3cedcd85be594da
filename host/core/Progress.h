#pragma once

#include "host/core/ProgressTask.h"
#include "host/core/ProgressTaskState.h"

#include <memory>
#include <string>
#include <vector>

namespace Kestrion {

class ProgressLink;

/// Where long work reports its progress: a console line, a dialog of the desktop host...
/// Work opens a task with addTask() and updates it through the returned ProgressTask, usually
/// from a worker thread, while a display shows it and may cancel it from another thread.
///
/// Implementations override the notifications. They are called on the thread that changed the
/// task, never two at a time for one Progress (so an implementation needs no lock of its own for
/// state touched only there), and must return quickly without waiting for other threads (a GUI
/// display queues the update to its own thread). A derived destructor calls detachTasks() first,
/// so that no notification reaches a half-destroyed object; tasks that outlive their Progress
/// keep working and are shown nowhere.
class Progress {
public:
    Progress();
    virtual ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Opens a task of the given number of steps (0 or less: unknown) shown with the description.
    ProgressTask addTask(int steps, const std::string& description);
    /// The tasks not yet finished, oldest first.
    std::vector<std::shared_ptr<ProgressTaskState>> tasks() const;
    /// Asks every unfinished task to stop.
    void cancelAll();

protected:
    virtual void taskAdded(const std::shared_ptr<ProgressTaskState>& task);
    /// Steps, steps done or description changed.
    virtual void taskChanged(const std::shared_ptr<ProgressTaskState>& task);
    /// Finished or canceled and finished; the task is no longer in tasks().
    virtual void taskFinished(const std::shared_ptr<ProgressTaskState>& task);
    void detachTasks();

private:
    friend class ProgressLink;
    std::shared_ptr<ProgressLink> m_link; // shared with the tasks, which outlive it safely
};

} // namespace Kestrion
