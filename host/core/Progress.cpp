#include "host/core/Progress.h"

#include "host/core/ProgressLink.h"

namespace Kestrion {

Progress::Progress()
    : m_link(std::make_shared<ProgressLink>(this)) {}

Progress::~Progress() {
    detachTasks();
}

ProgressTask Progress::addTask(int steps, const std::string& description) {
    auto state = std::make_shared<ProgressTaskState>(steps, description);
    m_link->notify(state, ProgressLink::Event::Added);
    return ProgressTask(std::move(state), m_link);
}

std::vector<std::shared_ptr<ProgressTaskState>> Progress::tasks() const {
    return m_link->tasks();
}

void Progress::cancelAll() {
    for (const auto& task : tasks())
        task->cancel();
}

void Progress::taskAdded(const std::shared_ptr<ProgressTaskState>&) {}

void Progress::taskChanged(const std::shared_ptr<ProgressTaskState>&) {}

void Progress::taskFinished(const std::shared_ptr<ProgressTaskState>&) {}

void Progress::detachTasks() {
    m_link->detach();
}

} // namespace Kestrion
