#pragma once

#include "host/core/ProgressTaskState.h"

#include <memory>
#include <string>

namespace Kestrion {

class ProgressLink;

/// The worker's handle on one progress task (see Progress::addTask). Finishes the task when
/// destroyed. Movable, not copyable. Calls on a moved-from handle do nothing.
class ProgressTask {
public:
    /// A task shown nowhere, for work started without a Progress; cancel() still works.
    ProgressTask(int steps, const std::string& description);
    ProgressTask(ProgressTask&& other) noexcept;
    ProgressTask& operator=(ProgressTask&& other) noexcept;
    ProgressTask(const ProgressTask&) = delete;
    ProgressTask& operator=(const ProgressTask&) = delete;
    ~ProgressTask();

    void setProgress(int done);
    int progress() const;
    void setSteps(int steps);
    int steps() const;
    void setDescription(const std::string& description);
    std::string description() const;
    /// True once the task was canceled, by its display or through cancel().
    bool wasCanceled() const;
    void cancel();
    /// Ends the task now rather than at destruction.
    void finish();

    /// The shared state, as displays see it.
    const std::shared_ptr<ProgressTaskState>& state() const { return m_state; }

private:
    friend class Progress;
    ProgressTask(std::shared_ptr<ProgressTaskState> state, std::shared_ptr<ProgressLink> link);
    void changed();

    std::shared_ptr<ProgressTaskState> m_state;
    std::shared_ptr<ProgressLink> m_link; // null for a task shown nowhere
};

} // namespace Kestrion
