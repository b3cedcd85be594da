#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>

#include <cstdint>
#include <vector>

namespace Kestrion::Simulator {

/// The true state of the scene at one frame: what the measurement was made of.
struct MarkerTruth {
    std::uint32_t geometryId = 0;
    Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity(); ///< Marker frame -> camera frame.
    Eigen::Vector3d translationMM = Eigen::Vector3d::Zero();
    std::vector<Eigen::Vector3d> fiducialsMM; ///< True fiducial positions, camera frame.
    std::uint32_t detectedMask = 0;           ///< Bit i: fiducial i was detected by both cameras.
};

struct FrameTruth {
    std::uint64_t index = 0;
    std::uint64_t timestampUS = 0;
    double timeS = 0.0;
    std::int64_t exposureUS = 0;      ///< Exposure on the host's system clock (µs since the epoch, UTC).
    std::int64_t deliverableUS = 0;   ///< When the frame reached the host, on the same clock.
    std::vector<MarkerTruth> markers; ///< In scene order.
    std::vector<Eigen::Vector3d> straysMM;
};

} // namespace Kestrion::Simulator
