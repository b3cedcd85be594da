#include "host/core/ProgressTaskState.h"

#include <algorithm>

namespace Kestrion {

ProgressTaskState::ProgressTaskState(int steps, std::string description)
    : m_steps(steps)
    , m_description(std::move(description)) {}

double ProgressTaskState::fraction() const {
    const int total = steps();
    if (total <= 0)
        return -1.0;
    return std::clamp(static_cast<double>(done()) / total, 0.0, 1.0);
}

std::string ProgressTaskState::description() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_description;
}

bool ProgressTaskState::setSteps(int steps) {
    return m_steps.exchange(steps) != steps;
}

bool ProgressTaskState::setDone(int done) {
    return m_done.exchange(done) != done;
}

bool ProgressTaskState::setDescription(const std::string& description) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_description == description)
        return false;
    m_description = description;
    return true;
}

bool ProgressTaskState::finish() {
    return !m_finished.exchange(true);
}

} // namespace Kestrion
