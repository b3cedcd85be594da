#pragma once

#include "host/ros2/Ros2Publisher.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

namespace Kestrion {
class TrackingStream;
}

namespace Kestrion::Cli {

struct TrackOptions;

/// The ROS 2 publisher of `kestrion track --ros2`: publishes the tracking stream while the command
/// tracks and adds its subscribers to the table.
class TrackRos2 {
public:
    TrackRos2() = default;
    ~TrackRos2() { stop(); }
    TrackRos2(const TrackRos2&) = delete;
    TrackRos2& operator=(const TrackRos2&) = delete;

    /// Publishes as the options say (nothing without --ros2) and serves `stream`; says where on
    /// `out`. False with *error set when the publisher cannot start.
    bool start(const TrackOptions& options, TrackingStream& stream, std::ostream& out, std::string* error);
    /// Stops publishing; before the stream goes. Keeps the counts for summary().
    void stop();

    /// The table's line about the publisher (empty without one).
    std::string table() const;
    /// The summary's line: frames published and skipped (empty without a publisher).
    std::string summary() const;

private:
    std::string counts() const;

    std::unique_ptr<Ros2::Ros2Publisher> m_publisher;
    bool m_started = false;
    std::uint64_t m_published = 0;
    std::uint64_t m_skipped = 0;
};

} // namespace Kestrion::Cli
