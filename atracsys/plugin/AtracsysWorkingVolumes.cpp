#include "atracsys/plugin/AtracsysWorkingVolumes.h"

#include "host/stream/WorkingVolume.h"

namespace Kestrion::SpryTrack {

namespace {

/// A camera model's calibrated volume: the depth range along the optical axis and the field of
/// view of its 2048 x 1088 sensor at its focal length (pixels), the figures of the models'
/// calibration that the simulated camera uses too (docs/simulator.md).
struct ModelVolume {
    const char* deviceType;
    double nearMM;
    double farMM;
    double focalPx;
};

constexpr ModelVolume Models[] = {
    {"sTk 180", 200.0, 1400.0, 1200.0},
    {"fTk 250", 800.0, 2000.0, 1800.0},
    {"fTk 500", 950.0, 2700.0, 1800.0},
    {"fTk simulator", 200.0, 1400.0, 1200.0},
};

constexpr double SensorHalfWidthPx = 2048.0 / 2.0;
constexpr double SensorHalfHeightPx = 1088.0 / 2.0;

} // namespace

void registerAtracsysWorkingVolumes() {
    for (const ModelVolume& model : Models) {
        WorkingVolume volume;
        volume.nearMM = model.nearMM;
        volume.farMM = model.farMM;
        volume.halfWidthPerMM = SensorHalfWidthPx / model.focalPx;
        volume.halfHeightPerMM = SensorHalfHeightPx / model.focalPx;
        WorkingVolume::registerDeviceType(model.deviceType, volume);
    }
}

} // namespace Kestrion::SpryTrack
