#pragma once

#include "host/stream/state/StreamHealth.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kestrion {
class TrackingStreamData;
}

namespace Kestrion::Ros2 {

/// The /diagnostics content of a publisher, without DDS: one status for the camera (its health)
/// and one per tool (tracked, or why not, with the reason the stream gives), and when to send it:
/// at once when a level or message changes, else once per period.
///
/// Levels: the camera is OK while delivering, ERROR while not delivering, WARN when stopped or
/// its data ended, STALE without a stream. A tool is OK while tracked, WARN when tracked with a
/// high registration error or not tracked (out of view is part of a normal day), ERROR when its
/// geometry is not on the camera, STALE when inactive.
class Ros2Diagnostics {
public:
    using Clock = std::chrono::steady_clock;

    enum Level : std::uint8_t { Ok = 0, Warn = 1, Error = 2, Stale = 3 };
    struct Status {
        std::uint8_t level = Ok;
        std::string name;
        std::string message;
        std::string hardwareId;
        std::vector<std::pair<std::string, std::string>> values;
    };
    /// What the publisher adds to the camera's status.
    struct Counters {
        std::uint64_t framesPublished = 0;
        std::uint64_t framesSkipped = 0;
        std::size_t subscribers = 0;
    };

    Ros2Diagnostics(std::string nameSpace, std::chrono::duration<double> period);

    /// The statuses to send now, or none when nothing changed and the period has not passed.
    /// `camera` is the served stream's health (null: no stream) and `streamName` its name;
    /// `frame` the newest frame (null: none yet).
    std::optional<std::vector<Status>> update(const StreamHealth::Snapshot* camera,
                                              const std::string& streamName, const TrackingStreamData* frame,
                                              const Counters& counters, Clock::time_point now);

    /// The next update() sends, changed or not (a new subscriber gets the state at once).
    void resend() { m_lastSent.reset(); }

private:
    Status cameraStatus(const StreamHealth::Snapshot* camera, const std::string& streamName,
                        const Counters& counters) const;
    void addToolStatuses(const TrackingStreamData& frame, bool delivering, std::vector<Status>& out) const;

    std::string m_prefix;
    Clock::duration m_period;
    std::optional<Clock::time_point> m_lastSent;
    std::string m_lastSignature;
};

} // namespace Kestrion::Ros2
