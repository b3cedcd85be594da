#include "host/core/ProgressTask.h"

#include "host/core/ProgressLink.h"

namespace Kestrion {

ProgressTask::ProgressTask(int steps, const std::string& description)
    : m_state(std::make_shared<ProgressTaskState>(steps, description)) {}

ProgressTask::ProgressTask(std::shared_ptr<ProgressTaskState> state, std::shared_ptr<ProgressLink> link)
    : m_state(std::move(state))
    , m_link(std::move(link)) {}

ProgressTask::ProgressTask(ProgressTask&& other) noexcept
    : m_state(std::move(other.m_state))
    , m_link(std::move(other.m_link)) {}

ProgressTask& ProgressTask::operator=(ProgressTask&& other) noexcept {
    if (this != &other) {
        finish();
        m_state = std::move(other.m_state);
        m_link = std::move(other.m_link);
    }
    return *this;
}

ProgressTask::~ProgressTask() {
    finish();
}

void ProgressTask::changed() {
    if (m_link)
        m_link->notify(m_state, ProgressLink::Event::Changed);
}

void ProgressTask::setProgress(int done) {
    if (m_state && m_state->setDone(done))
        changed();
}

int ProgressTask::progress() const {
    return m_state ? m_state->done() : 0;
}

void ProgressTask::setSteps(int steps) {
    if (m_state && m_state->setSteps(steps))
        changed();
}

int ProgressTask::steps() const {
    return m_state ? m_state->steps() : 0;
}

void ProgressTask::setDescription(const std::string& description) {
    if (m_state && m_state->setDescription(description))
        changed();
}

std::string ProgressTask::description() const {
    return m_state ? m_state->description() : std::string();
}

bool ProgressTask::wasCanceled() const {
    return m_state && m_state->isCanceled();
}

void ProgressTask::cancel() {
    if (m_state)
        m_state->cancel();
}

void ProgressTask::finish() {
    if (m_state && m_state->finish() && m_link)
        m_link->notify(m_state, ProgressLink::Event::Finished);
}

} // namespace Kestrion
