#pragma once

#include "host/stream/TrackingInstrument.h"
#include "host/stream/state/StreamHealth.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Kestrion {
class DeviceFrameInfo;
class TrackingStreamData;
} // namespace Kestrion

namespace Kestrion::Cli {

/// What `kestrion track` shows: the device, the frames received and those the device produced but
/// the host never received (gaps in the device's frame counter), and for each instrument its
/// pose and quality while tracked (isInstrumentTracked), when it was last seen, and the reason of
/// its status when the frames carry one. While the camera is not delivering, the table says so,
/// with the time since its last frame, and shows no instrument as tracked: the last frame is a past
/// one. Used on the command's thread only.
class TrackStatistics {
public:
    /// Takes one frame into account.
    void add(const TrackingStreamData& frame, const DeviceFrameInfo* device);

    /// The next frame starts the device's frame counter anew (a reopened camera).
    void forgetFrameCounter() { m_lastCounter.reset(); }

    std::uint64_t framesReceived() const { return m_framesReceived; }
    std::uint64_t framesDropped() const { return m_framesDropped; }
    /// Frames with at least one tracked instrument.
    std::uint64_t framesWithPose() const { return m_framesWithPose; }
    bool hasDevice() const { return !m_deviceType.empty(); }

    /// The table: device line, frame counts and rate, the camera's state unless it delivers, one
    /// line per instrument. `nowMs` is the current time (ms since the epoch), `rateHz` the rate of
    /// frames received lately, `health` the stream's health now.
    std::string table(std::uint64_t nowMs, double elapsedS, double rateHz,
                      const StreamHealth::Snapshot& health) const;

private:
    struct InstrumentState {
        std::string name;
        TrackingInstrument last;            // latest tracked measurement
        std::uint64_t lastSeenMs = 0;       // arrival time of that frame; 0: never tracked
        bool trackedNow = false;            // tracked in the latest frame
        std::string status;                 // the reason of the latest frame's instrument status, if any
        std::optional<Eigen::Vector3d> tip; // where that frame put the tool tip, if it has one
        std::string referenceCell;          // the position in the reference's frame, as shown
        std::string referenceNote;          // "reference not seen", or empty
    };

    std::string m_deviceType;
    std::uint64_t m_serialNumber = 0;
    std::uint64_t m_framesReceived = 0;
    std::uint64_t m_framesDropped = 0;
    std::uint64_t m_framesWithPose = 0;
    std::optional<std::uint32_t> m_lastCounter;
    std::vector<std::string> m_order; // instrument ids in order of first appearance
    std::map<std::string, InstrumentState> m_instruments;
    bool m_anyTip = false;       // the tip column is shown once a tip was seen
    bool m_anyReference = false; // the reference column is shown once frames carry a reference
};

} // namespace Kestrion::Cli
