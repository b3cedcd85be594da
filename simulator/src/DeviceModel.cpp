#include "simulator/src/DeviceModel.h"

namespace Kestrion::Simulator {

// The figures, and why, are documented in docs/simulator.md ("Accuracy settings").
DeviceModel DeviceModel::preset(ftkDeviceType type) {
    DeviceModel m;
    m.type = type;
    switch (type) {
    case ftkDeviceType::DEV_SPRYTRACK_300:
        m.rateHz = 60.0;
        m.baselineMM = 300.0;
        m.focalPx = 1450.0;
        m.convergenceMM = 1100.0;
        m.minDepthMM = 300.0;
        m.maxDepthMM = 2000.0;
        break;
    case ftkDeviceType::DEV_FUSIONTRACK_250:
        m.rateHz = 250.0;
        m.baselineMM = 250.0;
        m.focalPx = 1800.0;
        m.convergenceMM = 1300.0;
        m.minDepthMM = 800.0;
        m.maxDepthMM = 2000.0;
        m.integrationMinUS = 35;
        m.integrationMaxUS = 3500;
        m.usb = false;
        break;
    case ftkDeviceType::DEV_FUSIONTRACK_500:
        m.rateHz = 335.0;
        m.baselineMM = 500.0;
        m.focalPx = 1800.0;
        m.convergenceMM = 1700.0;
        m.minDepthMM = 950.0;
        m.maxDepthMM = 2700.0;
        m.integrationMinUS = 35;
        m.integrationMaxUS = 2600;
        m.usb = false;
        break;
    case ftkDeviceType::DEV_SIMULATOR:
        m.rateHz = 60.0;
        m.usb = false;
        break;
    default: // spryTrack 180 and anything else
        break;
    }
    return m;
}

std::optional<ftkDeviceType> DeviceModel::typeFromName(const std::string& name) {
    if (name == "spryTrack 180") {
        return ftkDeviceType::DEV_SPRYTRACK_180;
    }
    if (name == "spryTrack 300") {
        return ftkDeviceType::DEV_SPRYTRACK_300;
    }
    if (name == "fusionTrack 250") {
        return ftkDeviceType::DEV_FUSIONTRACK_250;
    }
    if (name == "fusionTrack 500") {
        return ftkDeviceType::DEV_FUSIONTRACK_500;
    }
    if (name == "simulator") {
        return ftkDeviceType::DEV_SIMULATOR;
    }
    return std::nullopt;
}

const char* DeviceModel::name(ftkDeviceType type) {
    switch (type) {
    case ftkDeviceType::DEV_SPRYTRACK_180:
        return "spryTrack 180";
    case ftkDeviceType::DEV_SPRYTRACK_300:
        return "spryTrack 300";
    case ftkDeviceType::DEV_FUSIONTRACK_250:
        return "fusionTrack 250";
    case ftkDeviceType::DEV_FUSIONTRACK_500:
        return "fusionTrack 500";
    case ftkDeviceType::DEV_SIMULATOR:
        return "simulator";
    default:
        return "unknown";
    }
}

} // namespace Kestrion::Simulator
