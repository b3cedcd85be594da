#pragma once

#include "host/stream/DataComponent.h"

#include <Eigen/Core>

#include <vector>

namespace Kestrion {

/// The 2D detections of a tracking frame's fiducials in the left and right camera images (pixels),
/// attached to frames whose images were fetched so that consumers of the images can show where
/// the device saw the fiducials. Which fiducials are listed is the producer's choice (for a camera
/// stream: those selected by its fiducial setting).
class CameraDetectionsData : public DataComponent {
public:
    struct Camera {
        /// Centre of each detection (x, y).
        std::vector<Eigen::Vector2d> centres;
        /// Width and height of each detection, parallel to `centres`.
        std::vector<Eigen::Vector2d> sizes;
    };

    Camera left;
    Camera right;
};

} // namespace Kestrion
