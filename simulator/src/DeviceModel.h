#pragma once

#include <ftkInterface.h>

#include <optional>
#include <string>

namespace Kestrion::Simulator {

/// Physical and optical settings of one camera: frame rate, sensors, stereo geometry and the noise
/// of the blob centres. Presets give plausible values per model; a scene may override each one.
struct DeviceModel {
    ftkDeviceType type = ftkDeviceType::DEV_SPRYTRACK_180;
    double rateHz = 54.0;
    int width = 2048;             ///< Sensor width in pixels.
    int height = 1088;            ///< Sensor height in pixels.
    double baselineMM = 180.0;    ///< Distance between the two optical centres.
    double focalPx = 1200.0;      ///< Focal length in pixels, both cameras.
    double convergenceMM = 700.0; ///< Depth where the optical axes cross; 0: parallel axes.
    double pixelNoise = 0.03;     ///< Standard deviation of a blob centre, pixels per axis.
    double fiducialDiameterMM = 11.5;
    double minDepthMM = 200.0; ///< Calibrated working volume along the optical axis.
    double maxDepthMM = 1400.0;
    int integrationMinUS = 50; ///< Range and default of the integration time option.
    int integrationMaxUS = 10000;
    int integrationDefaultUS = 200;
    bool usb = true; ///< USB models have the fixed options 6000 and 6003 and send images on request.
    double clockDriftPPM = 20.0;   ///< How fast the device's clock runs against the host's.
    double deliveryJitterMS = 2.0; ///< A frame reaches the host 0 to this many ms after its exposure.

    /// Preset of a model.
    static DeviceModel preset(ftkDeviceType type);
    /// Model from its scene name ("spryTrack 180", "fusionTrack 500", "simulator", ...).
    static std::optional<ftkDeviceType> typeFromName(const std::string& name);
    static const char* name(ftkDeviceType type);

    double periodS() const { return 1.0 / rateHz; }
};

} // namespace Kestrion::Simulator
