#include "simulator/src/DeviceModel.h"

namespace Kestrion::Simulator {

namespace {

/// What distinguishes the models; the other settings are DeviceModel's defaults.
struct ModelRow {
    ftkDeviceType type;
    const char* name;
    double rateHz;
    double baselineMM;
    double focalPx;
    double convergenceMM;
    double minDepthMM;
    double maxDepthMM;
    int integrationMinUS;
    int integrationMaxUS;
    bool usb;
};

// The figures, and why, are documented in docs/simulator.md ("Accuracy settings").
// The first row is the default model. Columns: type, name, rate (Hz), baseline (mm), focal length (px),
// convergence (mm), working depth min and max (mm), integration time min and max (us), USB.
constexpr ModelRow Models[] = {
    {ftkDeviceType::DEV_SPRYTRACK_180, "spryTrack 180", 54.0, 180.0, 1200.0, 700.0, 200.0, 1400.0, 50, 10000,
     true},
    {ftkDeviceType::DEV_SPRYTRACK_300, "spryTrack 300", 60.0, 300.0, 1450.0, 1100.0, 300.0, 2000.0, 50, 10000,
     true},
    {ftkDeviceType::DEV_FUSIONTRACK_250, "fusionTrack 250", 250.0, 250.0, 1800.0, 1300.0, 800.0, 2000.0, 35,
     3500, false},
    {ftkDeviceType::DEV_FUSIONTRACK_500, "fusionTrack 500", 335.0, 500.0, 1800.0, 1700.0, 950.0, 2700.0, 35,
     2600, false},
    {ftkDeviceType::DEV_SIMULATOR, "simulator", 60.0, 180.0, 1200.0, 700.0, 200.0, 1400.0, 50, 10000, false},
};

const ModelRow* row(ftkDeviceType type) {
    for (const ModelRow& r : Models) {
        if (r.type == type) {
            return &r;
        }
    }
    return nullptr;
}

} // namespace

DeviceModel DeviceModel::preset(ftkDeviceType type) {
    const ModelRow* found = row(type);
    const ModelRow& r = found ? *found : Models[0]; // anything else behaves as the default model
    DeviceModel m;
    m.type = type;
    m.rateHz = r.rateHz;
    m.baselineMM = r.baselineMM;
    m.focalPx = r.focalPx;
    m.convergenceMM = r.convergenceMM;
    m.minDepthMM = r.minDepthMM;
    m.maxDepthMM = r.maxDepthMM;
    m.integrationMinUS = r.integrationMinUS;
    m.integrationMaxUS = r.integrationMaxUS;
    m.usb = r.usb;
    return m;
}

std::optional<ftkDeviceType> DeviceModel::typeFromName(const std::string& name) {
    for (const ModelRow& r : Models) {
        if (name == r.name) {
            return r.type;
        }
    }
    return std::nullopt;
}

const char* DeviceModel::name(ftkDeviceType type) {
    const ModelRow* found = row(type);
    return found ? found->name : "unknown";
}

} // namespace Kestrion::Simulator
