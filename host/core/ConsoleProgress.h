#pragma once

#include "host/core/Progress.h"

#include <chrono>
#include <iosfwd>
#include <string>

namespace Kestrion {

/// Shows progress as text lines, by default on stderr:
///
///     Record geometry... 225/500 (45%)
///     Record geometry... 500/500 (100%) done
///
/// A task is printed when it starts, when it finishes ("done" or "canceled") and, in between,
/// at most once per interval whatever the number of updates. On a terminal each line
/// overwrites the previous one; elsewhere every print is a line of its own.
class ConsoleProgress : public Progress {
public:
    /// stderr, four prints a second, overwriting when stderr is a terminal.
    ConsoleProgress();
    ConsoleProgress(std::ostream& out, std::chrono::milliseconds interval, bool overwriteLine);
    ~ConsoleProgress() override;

    /// The text printed for a task in its current state.
    static std::string line(const ProgressTaskState& task);

protected:
    void taskAdded(const std::shared_ptr<ProgressTaskState>& task) override;
    void taskChanged(const std::shared_ptr<ProgressTaskState>& task) override;
    void taskFinished(const std::shared_ptr<ProgressTaskState>& task) override;

private:
    void print(const std::string& text, bool final);

    // Used only inside notifications, which Progress never runs two at a time.
    std::ostream& m_out;
    const std::chrono::milliseconds m_interval;
    const bool m_overwrite;
    std::chrono::steady_clock::time_point m_lastPrint;
    std::size_t m_lastLength = 0;
};

} // namespace Kestrion
