#include "simulator/src/DeviceClock.h"

#include <cmath>

namespace Kestrion::Simulator {

DeviceClock::DeviceClock(double rateHz, TimePoint start, bool stepped)
    : m_rate(rateHz)
    , m_start(start)
    , m_stepped(stepped) {}

void DeviceClock::follow(bool stepped, TimePoint now) {
    if (stepped == m_stepped) {
        return;
    }
    if (stepped) {
        m_steppedIndex = currentIndex(false, now);
    } else {
        m_start = now;
        m_offset = m_steppedIndex;
    }
    m_stepped = stepped;
}

std::uint64_t DeviceClock::currentIndex(bool stepped, TimePoint now) {
    follow(stepped, now);
    if (m_stepped) {
        return m_steppedIndex;
    }
    const double elapsed = std::chrono::duration<double>(now - m_start).count();
    return m_offset + (elapsed > 0.0 ? static_cast<std::uint64_t>(std::floor(elapsed * m_rate)) : 0);
}

std::uint64_t DeviceClock::takeNext(bool stepped, TimePoint now) {
    follow(stepped, now);
    return ++m_steppedIndex;
}

void DeviceClock::skip(bool stepped, TimePoint now, std::uint64_t frames) {
    follow(stepped, now);
    if (m_stepped) {
        m_steppedIndex += frames;
    }
}

DeviceClock::TimePoint DeviceClock::timeOf(std::uint64_t index) const {
    const double seconds = index <= m_offset ? 0.0 : static_cast<double>(index - m_offset) / m_rate;
    // Rounded up so that waking at this time finds the frame there.
    return m_start + std::chrono::duration_cast<TimePoint::duration>(std::chrono::duration<double>(seconds)) +
           TimePoint::duration(1);
}

} // namespace Kestrion::Simulator
