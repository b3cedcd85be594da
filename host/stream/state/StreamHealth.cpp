#include "host/stream/state/StreamHealth.h"

#include <algorithm>

namespace Kestrion {

namespace {
// The measured period follows the rate within a few dozen items and ignores a single late one.
constexpr int kPeriodSmoothing = 16;
constexpr int kSilencePeriods = 10;
} // namespace

void StreamHealth::setSilenceThreshold(std::chrono::milliseconds minimum) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_minimum = std::max(minimum, std::chrono::milliseconds(1));
}

std::chrono::milliseconds StreamHealth::silenceThreshold() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_minimum;
}

void StreamHealth::noteStarted(Clock::time_point now) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_running = true;
    m_ended = false;
    m_endReason.clear();
    m_startedAt = now;
    // A start that brings a lost stream back continues its outage; any other start begins anew.
    if (!m_reopening)
        m_lastData.reset();
    m_reopening = false;
}

void StreamHealth::noteStopped() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_running = false;
}

void StreamHealth::noteData(Clock::time_point now) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const Clock::time_point previous = m_lastData.value_or(m_startedAt);
    const bool sameRun = m_lastData && *m_lastData >= m_startedAt;
    const Clock::duration gap = now - previous;
    if (m_running && m_lastData && gap > thresholdLocked()) {
        ++m_outages;
        m_outageTime += gap;
    }
    if (sameRun) {
        // A gap counted as an outage does not enter the period: it is not the data's rate.
        if (m_period == Clock::duration::zero())
            m_period = gap;
        else if (gap <= kSilencePeriods * m_period)
            m_period += (gap - m_period) / kPeriodSmoothing;
    }
    m_lastData = now;
    ++m_dataItems;
    m_lastError.clear();
}

void StreamHealth::noteFailure(std::string reason) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lastError = std::move(reason);
}

void StreamHealth::noteReopening() {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_reopenings;
    m_reopening = true;
}

void StreamHealth::noteEnded(std::string reason) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_ended = true;
    m_endReason = std::move(reason);
}

StreamHealth::Snapshot StreamHealth::snapshot(Clock::time_point now) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    Snapshot s;
    s.silenceThreshold = thresholdLocked();
    s.dataPeriod = m_period;
    s.dataItems = m_dataItems;
    s.outages = m_outages;
    s.outageTime = m_outageTime;
    s.reopenings = m_reopenings;
    s.reopening = m_reopening;
    s.lastError = m_lastError;
    s.endReason = m_endReason;
    if (m_lastData)
        s.sinceLastData = now - *m_lastData;
    if (m_ended)
        s.state = State::Ended;
    else if (!m_running)
        s.state = State::Stopped;
    else
        s.state = now - std::max(m_lastData.value_or(m_startedAt), m_startedAt) > s.silenceThreshold
                      ? State::NotDelivering
                      : State::Delivering;
    return s;
}

const char* StreamHealth::stateName(State state) {
    switch (state) {
    case State::Stopped:
        return "stopped";
    case State::Delivering:
        return "delivering";
    case State::NotDelivering:
        return "not delivering";
    case State::Ended:
        return "ended";
    }
    return "unknown";
}

StreamHealth::Clock::duration StreamHealth::thresholdLocked() const {
    return std::max<Clock::duration>(m_minimum, kSilencePeriods * m_period);
}

} // namespace Kestrion
