#pragma once

#include "host/stream/TrackerID.h"

#include <Eigen/Core>

#include <cstdint>
#include <string>

namespace Kestrion {

/// One tracked instrument as seen in one frame: its identity, its pose (a 4x4 matrix with the
/// rotation in the upper-left block and the translation in millimetres in the last column), the
/// quality of the measurement (0 not tracked .. 1 best), the time of the measurement (ms since the
/// epoch, UTC), a state field whose meaning is the producer's (0 when unused) and whether the
/// instrument takes part in tracking. A new instrument is untracked: identity pose, quality 0.
struct TrackingInstrument {
    TrackingInstrument() = default;
    explicit TrackingInstrument(TrackerID trackerId, bool isActive = true)
        : id(std::move(trackerId))
        , active(isActive) {}

    const std::string& ID() const { return id.ID(); }
    Eigen::Vector3d translation() const { return matrix.block<3, 1>(0, 3); }
    Eigen::Matrix3d rotation() const { return matrix.block<3, 3>(0, 0); }

    bool operator==(const TrackingInstrument& other) const {
        return id == other.id && matrix == other.matrix && quality == other.quality &&
               timestamp == other.timestamp && state == other.state && active == other.active;
    }
    bool operator!=(const TrackingInstrument& other) const { return !(*this == other); }

    TrackerID id;
    Eigen::Matrix4d matrix = Eigen::Matrix4d::Identity();
    double quality = 0.0;
    std::uint64_t timestamp = 0;
    std::uint32_t state = 0;
    bool active = true;
};

} // namespace Kestrion
