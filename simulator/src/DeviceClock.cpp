#include "simulator/src/DeviceClock.h"

#include "simulator/src/Random.h"

#include <algorithm>
#include <cmath>

namespace Kestrion::Simulator {

namespace {

/// Free-running stretches remembered for the exposure times of their frames; a test that switches
/// the clock more often than this finds the oldest frames mapped by the oldest stretch kept.
constexpr std::size_t MaxAnchors = 64;

/// `at` (steady clock) on the system clock, in µs since the epoch: the two clocks read back to
/// back, retried when the reads were far apart (the thread was preempted between them).
std::int64_t systemTimeUS(std::chrono::steady_clock::time_point at) {
    using namespace std::chrono;
    for (int attempt = 0;; ++attempt) {
        const steady_clock::time_point before = steady_clock::now();
        const system_clock::time_point system = system_clock::now();
        const steady_clock::time_point after = steady_clock::now();
        if (after - before < microseconds(5) || attempt == 20) {
            const auto sinceAt = (before - at) + (after - before) / 2;
            return duration_cast<microseconds>(system.time_since_epoch() - sinceAt).count();
        }
    }
}

} // namespace

DeviceClock::DeviceClock(const Settings& settings, TimePoint start, bool stepped)
    : m_settings(settings)
    , m_hostRate(settings.rateHz * (1.0 + settings.driftPPM * 1e-6))
    , m_window(static_cast<std::uint64_t>(std::ceil(settings.jitterMS * 1e-3 * m_hostRate)))
    , m_origin(start)
    , m_originUS(systemTimeUS(start))
    , m_anchors{{0, start}}
    , m_stepped(stepped) {}

void DeviceClock::follow(bool stepped, TimePoint now) {
    if (stepped == m_stepped) {
        return;
    }
    if (stepped) {
        m_steppedIndex = currentIndex(false, now);
    } else {
        if (m_anchors.size() == MaxAnchors) {
            m_anchors.erase(m_anchors.begin());
        }
        m_anchors.push_back({m_steppedIndex, now});
    }
    m_stepped = stepped;
}

const DeviceClock::Anchor& DeviceClock::anchorOf(std::uint64_t index) const {
    // The newest stretch that had begun by that frame.
    for (auto it = m_anchors.rbegin(); it != m_anchors.rend(); ++it) {
        if (it->index <= index) {
            return *it;
        }
    }
    return m_anchors.front();
}

double DeviceClock::exposureS(std::uint64_t index) const {
    const Anchor& a = anchorOf(index);
    return std::chrono::duration<double>(a.start - m_origin).count() +
           (static_cast<double>(index) - static_cast<double>(a.index)) / m_hostRate;
}

double DeviceClock::delayS(std::uint64_t index) const {
    if (m_settings.jitterMS <= 0.0) {
        return 0.0;
    }
    Random random(Random::mix(m_settings.seed, index));
    return random.uniform() * m_settings.jitterMS * 1e-3;
}

double DeviceClock::deliverableS(std::uint64_t index) const {
    const Anchor& a = anchorOf(index);
    // Frames exposed before a free-running stretch began are there at its start.
    double at = std::chrono::duration<double>(a.start - m_origin).count();
    if (index <= a.index) {
        return at;
    }
    // In order: not before any earlier frame whose delay could reach past this one's arrival.
    const std::uint64_t first = std::max(a.index + 1, index > m_window ? index - m_window : 0);
    for (std::uint64_t k = first; k <= index; ++k) {
        at = std::max(at, exposureS(k) + delayS(k));
    }
    return at;
}

DeviceClock::TimePoint DeviceClock::toTimePoint(double secondsAfterOrigin) const {
    return m_origin +
           std::chrono::duration_cast<TimePoint::duration>(std::chrono::duration<double>(secondsAfterOrigin));
}

std::uint64_t DeviceClock::currentIndex(bool stepped, TimePoint now) {
    follow(stepped, now);
    if (m_stepped) {
        return m_steppedIndex;
    }
    const Anchor& a = m_anchors.back();
    const double elapsed = std::chrono::duration<double>(now - a.start).count();
    // One past the newest frame exposed, then back to the newest that has arrived.
    std::uint64_t index =
        a.index + (elapsed > 0.0 ? static_cast<std::uint64_t>(std::floor(elapsed * m_hostRate)) + 1 : 0);
    while (index > a.index && toTimePoint(deliverableS(index)) > now) {
        --index;
    }
    return index;
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
    return toTimePoint(deliverableS(index));
}

std::uint64_t DeviceClock::deviceTimeUS(std::uint64_t index) const {
    return static_cast<std::uint64_t>(std::llround(static_cast<double>(index) * 1e6 / m_settings.rateHz));
}

std::int64_t DeviceClock::exposureEpochUS(std::uint64_t index) const {
    return m_originUS + std::llround(exposureS(index) * 1e6);
}

std::int64_t DeviceClock::deliverableEpochUS(std::uint64_t index) const {
    return m_originUS + std::llround(deliverableS(index) * 1e6);
}

} // namespace Kestrion::Simulator
