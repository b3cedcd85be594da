#include "host/core/ConsoleProgress.h"

#include <cmath>
#include <iostream>
#include <unistd.h>

namespace Kestrion {

ConsoleProgress::ConsoleProgress()
    : ConsoleProgress(std::cerr, std::chrono::milliseconds(250), ::isatty(STDERR_FILENO) != 0) {}

ConsoleProgress::ConsoleProgress(std::ostream& out, std::chrono::milliseconds interval, bool overwriteLine)
    : m_out(out)
    , m_interval(interval)
    , m_overwrite(overwriteLine) {}

ConsoleProgress::~ConsoleProgress() {
    detachTasks();
}

std::string ConsoleProgress::line(const ProgressTaskState& task) {
    std::string text = task.description() + " " + std::to_string(task.done());
    const double fraction = task.fraction();
    if (fraction >= 0)
        text += "/" + std::to_string(task.steps()) + " (" +
                std::to_string(static_cast<int>(std::floor(fraction * 100.0))) + "%)";
    if (task.isFinished())
        text += task.isCanceled() ? " canceled" : " done";
    return text;
}

void ConsoleProgress::taskAdded(const std::shared_ptr<ProgressTaskState>& task) {
    print(line(*task), false);
}

void ConsoleProgress::taskChanged(const std::shared_ptr<ProgressTaskState>& task) {
    if (std::chrono::steady_clock::now() - m_lastPrint >= m_interval)
        print(line(*task), false);
}

void ConsoleProgress::taskFinished(const std::shared_ptr<ProgressTaskState>& task) {
    print(line(*task), true);
}

void ConsoleProgress::print(const std::string& text, bool final) {
    if (m_overwrite) {
        // Pad with spaces so that a shorter line hides the end of the previous one.
        const std::size_t padding = m_lastLength > text.size() ? m_lastLength - text.size() : 0;
        m_out << '\r' << text << std::string(padding, ' ');
        if (final)
            m_out << '\n';
        m_lastLength = final ? 0 : text.size();
    } else {
        m_out << text << '\n';
    }
    m_out.flush();
    m_lastPrint = std::chrono::steady_clock::now();
}

} // namespace Kestrion
