#include "host/core/ProgressLink.h"

#include "host/core/Progress.h"

#include <algorithm>

namespace Kestrion {

ProgressLink::ProgressLink(Progress* progress)
    : m_progress(progress) {}

void ProgressLink::notify(const std::shared_ptr<ProgressTaskState>& task, Event event) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_progress)
        return;
    switch (event) {
    case Event::Added:
        m_tasks.push_back(task);
        m_progress->taskAdded(task);
        break;
    case Event::Changed:
        m_progress->taskChanged(task);
        break;
    case Event::Finished:
        m_tasks.erase(std::remove(m_tasks.begin(), m_tasks.end(), task), m_tasks.end());
        m_progress->taskFinished(task);
        break;
    }
}

std::vector<std::shared_ptr<ProgressTaskState>> ProgressLink::tasks() const {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return m_tasks;
}

void ProgressLink::detach() {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_progress = nullptr;
    m_tasks.clear();
}

} // namespace Kestrion
