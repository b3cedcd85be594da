#pragma once

#include <chrono>
#include <cstdint>

namespace Kestrion::Simulator {

/// Frame timing of one device. Free running, frame n exists from start + n / rate on the steady
/// clock. Stepped, the clock stands still and each fetch takes the next frame at once. Switching
/// between the modes keeps the frame index increasing. Not locked: the owning device locks.
class DeviceClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// A clock made while the simulator is stepped starts stepped at frame 0, however long the
    /// rest of its device takes to build.
    explicit DeviceClock(double rateHz, TimePoint start = std::chrono::steady_clock::now(),
                         bool stepped = false);

    /// The newest frame index at `now` (free running) or the last stepped index.
    std::uint64_t currentIndex(bool stepped, TimePoint now);
    /// Stepped mode: advances to the next frame and returns its index.
    std::uint64_t takeNext(bool stepped, TimePoint now);
    /// Stepped mode: skips n frames without delivering them.
    void skip(bool stepped, TimePoint now, std::uint64_t frames);
    /// Free running: when frame `index` comes into existence.
    TimePoint timeOf(std::uint64_t index) const;
    double rateHz() const { return m_rate; }

private:
    void follow(bool stepped, TimePoint now);

    double m_rate;
    TimePoint m_start;
    std::uint64_t m_offset = 0; ///< Index at m_start.
    bool m_stepped = false;
    std::uint64_t m_steppedIndex = 0;
};

} // namespace Kestrion::Simulator
