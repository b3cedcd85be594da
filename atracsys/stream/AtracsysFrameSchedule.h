#pragma once

#include <cstdint>
#include <optional>

namespace Kestrion::SpryTrack {

/// When the camera's next frame can come at the earliest, from the frames seen so far: the last
/// frame's capture time (the host's clock) plus the camera's frame period (from its own clock and
/// frame counter). A frame is never delivered before it is exposed, so until then a camera-paced
/// acquisition has nothing to wait for and need not hold the device mutex.
///
/// Not after a frame that was already waiting when it was fetched: the fetch came late (the
/// acquisition's start, a sleep that overran), and the capture time taken from that late arrival
/// may be late as well, so a sleep measured from it could run past the next frame's arrival and
/// the one after, which would replace it. The next fetch then follows at once.
///
/// Not locked: used on the stream's worker thread only (reset() at open, worker stopped).
class AtracsysFrameSchedule {
public:
    /// A frame fetched: its counter, the camera's time of it (µs), its capture time (µs since the
    /// epoch, UTC) and whether it was there already when the fetch began.
    void noteFrame(std::uint32_t counter, std::uint64_t deviceUS, std::uint64_t captureUS,
                   bool foundWaiting = false);
    /// The next frame's earliest arrival (µs since the epoch, UTC); none until the period is known
    /// and none after a frame found waiting.
    std::optional<std::uint64_t> nextFrameUS() const;
    /// The frame period in µs; 0 until two frames with consecutive counters were seen.
    std::uint64_t periodUS() const { return m_periodUS; }
    /// Forgets everything (the camera was reopened).
    void reset() { *this = AtracsysFrameSchedule(); }

private:
    bool m_seen = false;
    std::uint32_t m_counter = 0;
    std::uint64_t m_deviceUS = 0;
    std::uint64_t m_captureUS = 0;
    std::uint64_t m_periodUS = 0;
    bool m_foundWaiting = false;
};

} // namespace Kestrion::SpryTrack
