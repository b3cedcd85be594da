#pragma once

#include <cstdint>
#include <deque>

namespace Kestrion::SpryTrack {

/// Maps the camera's clock onto the host's: the capture time of a frame (µs since the epoch, UTC)
/// from the camera's timestamp of it (µs on the camera's own clock, which starts with the device)
/// and the time it arrived on the host.
///
/// The arrival is the capture plus a delay that is never negative and varies from frame to frame
/// (transfer, the driver, the scheduling of the fetching thread). The frames that arrive with the
/// smallest delay show the offset between the clocks best, so the offset is the minimum of
/// (arrival - camera time) over a sliding window, each minimum carried forward by the clocks'
/// drift. The drift (the camera's crystal against the host's, tens of ppm) is the slope of a line
/// through the minima of the last half-minute, refitted without the minima that lie far above
/// it (blocks in which every frame was late). The delivery jitter therefore does not reach the
/// capture time; what remains is the smallest delay seen, which is the delay of a prompt frame.
///
/// Guarantees, frame after frame of one camera run: the capture time is never later than the
/// arrival and strictly increases. A camera time that does not increase (the camera was reopened
/// and its clock restarted) or an arrival not after the last capture time (the host's clock was
/// set back) starts the estimate afresh; reset() does so explicitly.
///
/// One thread (the stream's worker) uses it; no lock.
class AtracsysCaptureTimeEstimator {
public:
    /// Camera time over which the minima are taken, and the length of one block of frames.
    static constexpr std::int64_t WindowUS = 4'000'000;
    static constexpr std::int64_t BlockUS = 250'000;
    /// Camera time over which the drift is fitted; the fit needs at least MinDriftSpanUS (over a
    /// shorter span the minima's own scatter, tens of µs, would outweigh a drift of tens of ppm).
    static constexpr std::int64_t DriftHistoryUS = 30'000'000;
    static constexpr std::int64_t MinDriftSpanUS = 10'000'000;
    /// Drifts beyond this (as a fraction) are not a crystal's: the fit is clamped to it.
    static constexpr double MaxDrift = 200e-6;
    /// Minima further than this above the first fit are left out of the second.
    static constexpr double OutlierUS = 200.0;

    /// The capture time of a frame with camera time `deviceUS` that arrived at `arrivalUS`.
    std::uint64_t captureTime(std::uint64_t deviceUS, std::uint64_t arrivalUS);
    /// Forgets everything (the camera was reopened).
    void reset();

    /// The drift in use (host µs per camera µs, minus 1).
    double drift() const { return m_drift; }

private:
    struct Minimum {
        std::int64_t deviceUS;   ///< camera time of the frame with the smallest offset of the block
        std::int64_t residualUS; ///< its arrival - camera time
    };

    void addSample(std::int64_t deviceUS, std::int64_t residualUS);
    void fitDrift();
    double offsetAt(std::int64_t deviceUS) const;

    std::deque<Minimum> m_blocks; ///< one minimum per block, oldest first; the last one is open
    std::int64_t m_blockStartUS = 0;
    double m_drift = 0.0;
    bool m_started = false;
    std::uint64_t m_lastDeviceUS = 0;
    std::uint64_t m_lastCaptureUS = 0;
};

} // namespace Kestrion::SpryTrack
