#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

namespace Kestrion::Simulator {

/// Frame timing of one live device, on two clocks: the device's own and the host's.
///
/// The device exposes frame n when its own clock reads n / rate (its timestamps count from its
/// start). That clock runs `driftPPM` millionths fast against the host's, so on the host's steady
/// clock frames come at rate × (1 + drift). Each frame then reaches the host a delay after its
/// exposure, drawn per frame between 0 and `jitterMS` from the seed, and frames keep their order:
/// a frame is deliverable once it and every frame before it have arrived.
///
/// Free running, the newest deliverable frame is the current one. Stepped, the clock stands still
/// and each fetch takes the next frame at once (the host's exposure times of stepped frames go on
/// from the last free-running stretch, as if time had passed one frame per step). Switching
/// between the modes keeps the frame index increasing. Not locked: the owning device locks.
class DeviceClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Settings {
        double rateHz = 60.0;   ///< Frames per second of the device's own clock.
        double driftPPM = 0.0;  ///< How fast the device's clock runs against the host's.
        double jitterMS = 0.0;  ///< Largest delivery delay of a frame.
        std::uint64_t seed = 0; ///< Draws the delivery delays.
    };

    /// A clock made while the simulator is stepped starts stepped at frame 0, however long the
    /// rest of its device takes to build.
    explicit DeviceClock(const Settings& settings, TimePoint start = std::chrono::steady_clock::now(),
                         bool stepped = false);

    /// The newest deliverable frame at `now` (free running) or the last stepped index.
    std::uint64_t currentIndex(bool stepped, TimePoint now);
    /// Stepped mode: advances to the next frame and returns its index.
    std::uint64_t takeNext(bool stepped, TimePoint now);
    /// Stepped mode: skips n frames without delivering them.
    void skip(bool stepped, TimePoint now, std::uint64_t frames);
    /// Free running: when frame `index` becomes deliverable.
    TimePoint timeOf(std::uint64_t index) const;

    /// The device's own timestamp of frame `index`: microseconds since the device started.
    std::uint64_t deviceTimeUS(std::uint64_t index) const;
    /// When frame `index` was exposed, on the host's system clock (µs since the epoch, UTC).
    std::int64_t exposureEpochUS(std::uint64_t index) const;
    /// When frame `index` became deliverable, on the host's system clock (µs since the epoch, UTC).
    std::int64_t deliverableEpochUS(std::uint64_t index) const;
    double rateHz() const { return m_settings.rateHz; }

private:
    /// A free-running stretch: frame `index` was exposed at `start`.
    struct Anchor {
        std::uint64_t index;
        TimePoint start;
    };

    void follow(bool stepped, TimePoint now);
    const Anchor& anchorOf(std::uint64_t index) const;
    /// Host steady time of the exposure of `index`, and of its arrival, in seconds after m_origin.
    double exposureS(std::uint64_t index) const;
    double deliverableS(std::uint64_t index) const;
    double delayS(std::uint64_t index) const;
    TimePoint toTimePoint(double secondsAfterOrigin) const;

    Settings m_settings;
    double m_hostRate;             ///< Frames per second on the host's clock.
    std::uint64_t m_window;        ///< Frames a delivery delay can span.
    TimePoint m_origin;            ///< The device's start on the host's steady clock...
    std::int64_t m_originUS;       ///< ... and on its system clock (µs since the epoch).
    std::vector<Anchor> m_anchors; ///< One per free-running stretch, the newest last.
    bool m_stepped = false;
    std::uint64_t m_steppedIndex = 0;
};

} // namespace Kestrion::Simulator
