#include "simulator/src/ReplayDeviceFactory.h"

#include "simulator/src/Device.h"
#include "simulator/src/ReplayFrameSource.h"
#include "simulator/src/ReplaySource.h"

#include <cstdio>
#include <cstdlib>

namespace Kestrion::Simulator {

bool ReplayDeviceFactory::markersFromEnvironment(ReplaySource::Markers& markers, std::string& error) {
    markers = ReplaySource::Markers::Recorded;
    const char* mode = std::getenv("FTK_SIMULATOR_REPLAY_MARKERS");
    if (mode == nullptr || *mode == '\0') {
        return true;
    }
    const std::string text = mode;
    if (text == "matched") {
        markers = ReplaySource::Markers::Matched;
        return true;
    }
    if (text == "recorded") {
        return true;
    }
    error = "FTK_SIMULATOR_REPLAY_MARKERS: recorded or matched, not '" + text + "'";
    return false;
}

bool ReplayDeviceFactory::paceFromEnvironment(bool& perFetch, std::string& error) {
    const char* pace = std::getenv("FTK_SIMULATOR_REPLAY_PACE");
    const std::string text = pace != nullptr ? pace : "";
    perFetch = text == "fetch";
    if (text.empty() || text == "fetch" || text == "recorded") {
        return true;
    }
    error = "FTK_SIMULATOR_REPLAY_PACE: recorded or fetch, not '" + text + "'";
    return false;
}

std::shared_ptr<Device> ReplayDeviceFactory::create(const std::string& path, ReplaySource::Markers markers,
                                                    const std::atomic<bool>& steppedClock,
                                                    std::string& error) {
    std::string warning;
    std::unique_ptr<ReplaySource> source = ReplaySource::open(path, markers, error, warning);
    if (!source) {
        return nullptr;
    }
    if (!warning.empty()) {
        std::fprintf(stderr, "ftkInit: %s\n", warning.c_str());
    }
    const Recording::SessionHeader& header = source->header();
    const auto type = static_cast<ftkDeviceType>(header.deviceType);
    if (std::string(DeviceModel::name(type)) == "unknown") {
        error = "recording " + path + ": header: unknown device type " + std::to_string(header.deviceType);
        return nullptr;
    }
    DeviceDescription description;
    description.serial = header.serialNumber;
    description.model = DeviceModel::preset(type);
    description.model.rateHz = source->rateHz();
    auto scene = std::make_shared<SceneDescription>();
    scene->source = "recording " + path;
    auto device = std::make_shared<Device>(
        description, scene, std::make_unique<ReplayFrameSource>(std::move(source), steppedClock.load()),
        steppedClock);
    for (const Recording::OptionValue& option : header.options) {
        if (!option.readable) {
            continue;
        }
        OptionSetting setting;
        setting.id = option.id;
        setting.isText = option.type == Recording::OptionValue::Type::Data;
        setting.text = option.data;
        setting.number = option.type == Recording::OptionValue::Type::Float32 ? double(option.floatValue)
                                                                              : double(option.intValue);
        std::string ignored; // options this model does not have or does not let be written keep theirs
        device->applySetting(setting, ignored);
    }
    return device;
}

} // namespace Kestrion::Simulator
