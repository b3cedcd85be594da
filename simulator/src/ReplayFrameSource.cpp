#include "simulator/src/ReplayFrameSource.h"

#include <algorithm>

namespace Kestrion::Simulator {

ReplayFrameSource::ReplayFrameSource(std::unique_ptr<ReplaySource> recording, bool stepped)
    : m_recording(std::move(recording))
    , m_stepped(stepped) {}

std::chrono::microseconds ReplayFrameSource::recordedTime(std::uint64_t index) const {
    const std::uint64_t last = m_recording->frameCount() - 1;
    return std::chrono::microseconds(m_recording->timeUS(std::min(index, last)));
}

std::uint64_t ReplayFrameSource::recordedAt(TimePoint now) const {
    const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(now - m_zero).count();
    return m_recording->frameAt(elapsed > 0 ? static_cast<std::uint64_t>(elapsed) : 0);
}

void ReplayFrameSource::follow(bool stepped, TimePoint now) {
    if (stepped == m_stepped) {
        return;
    }
    if (stepped) {
        // Steps go on after the frame the recorded pace had reached.
        m_next = m_started ? recordedAt(now) + 1 : 0;
    } else if (m_started) {
        // The recorded pace goes on from the last frame taken.
        m_zero = now - recordedTime(m_next > 0 ? m_next - 1 : 0);
    }
    m_stepped = stepped;
}

std::uint64_t ReplayFrameSource::currentIndex(bool stepped, TimePoint now) {
    follow(stepped, now);
    if (m_stepped) {
        return m_next > 0 ? m_next - 1 : 0;
    }
    // Before the first delivery the recording waits at its first frame.
    return m_started ? recordedAt(now) : 0;
}

std::uint64_t ReplayFrameSource::takeNext(bool stepped, TimePoint now) {
    follow(stepped, now);
    return m_next++;
}

void ReplayFrameSource::skip(bool stepped, TimePoint now, std::uint64_t frames) {
    follow(stepped, now);
    if (m_stepped) {
        m_next += frames;
    }
}

std::optional<FrameSource::TimePoint> ReplayFrameSource::arrival(std::uint64_t index) const {
    if (index >= m_recording->frameCount()) {
        return std::nullopt;
    }
    return m_zero + recordedTime(index);
}

double ReplayFrameSource::timeS(std::uint64_t index) const {
    return static_cast<double>(recordedTime(index).count()) * 1e-6;
}

void ReplayFrameSource::delivering(std::uint64_t index, TimePoint now) {
    if (!m_started) {
        // The recording starts with the first frame delivered, whenever that is.
        m_started = true;
        m_zero = now - recordedTime(index);
    }
}

bool ReplayFrameSource::pastEnd(std::uint64_t index, std::string& message) const {
    if (index < m_recording->frameCount()) {
        return false;
    }
    message = "The recording " + m_recording->path() + " ended after " +
              std::to_string(m_recording->frameCount()) + " frames";
    return true;
}

bool ReplayFrameSource::produce(std::uint64_t index, const ProductionSettings& /*settings*/, FrameData& frame,
                                FrameTruth& truth, std::string& error) {
    // A recording's truth is not known: only which frame it is.
    truth = FrameTruth{};
    truth.index = index;
    truth.timeS = timeS(index);
    if (!m_recording->load(index, frame, error)) {
        return false;
    }
    truth.timestampUS = frame.timestampUS;
    return true;
}

} // namespace Kestrion::Simulator
