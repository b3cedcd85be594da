#pragma once

#include <Eigen/Core>

#include <cstdint>
#include <string>
#include <vector>

namespace Kestrion::SpryTrack {

/// The most fiducials a marker geometry holds (the camera's limit).
constexpr int StatusMaxGeometryPoints = 6;
/// "No fiducial" in the fiducial indices below.
constexpr std::uint32_t StatusNoFiducial = 0xFFFFFFFFu;

/// A marker the camera found in a frame: which raw fiducial it matched to each point of its
/// geometry (StatusNoFiducial for a point it did not see) and how well it fits.
struct StatusMarker {
    std::uint32_t geometryId = 0;
    double registrationErrorMM = 0.0;
    std::uint32_t fiducials[StatusMaxGeometryPoints] = {StatusNoFiducial, StatusNoFiducial, StatusNoFiducial,
                                                        StatusNoFiducial, StatusNoFiducial, StatusNoFiducial};
};

/// An instrument of the stream and the geometry it tracks. `pointCount` is the file's count; only
/// the first StatusMaxGeometryPoints points exist (a file with more never gets this far).
struct StatusInstrument {
    std::string id;
    std::uint32_t geometryId = 0;
    bool active = true;
    bool onCamera = false;
    std::uint32_t pointCount = 0;
    Eigen::Vector3d points[StatusMaxGeometryPoints];
};

/// What one frame shows: every raw 3D fiducial (millimetres, camera frame) and the markers found.
struct StatusFrame {
    std::vector<Eigen::Vector3d> fiducials;
    std::vector<StatusMarker> markers;
};

} // namespace Kestrion::SpryTrack
