#include "atracsys/stream/AtracsysDeviceReadings.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>

namespace Kestrion::SpryTrack {

namespace {

struct Listed {
    std::uint32_t id = 0;
    ftkOptionType type = ftkOptionType::FTK_INT32;
    std::string name;
    std::string unit;
    bool readable = false;
    bool writable = false;
    bool global = false;
};

extern "C" void collectReadingOption(uint64, void* user, ftkOptionsInfo* info) {
    if (!user || !info || !info->name)
        return;
    Listed listed;
    listed.id = info->id;
    listed.type = info->type;
    listed.name = info->name;
    listed.unit = info->unit ? info->unit : "";
    listed.readable = info->status.read != 0;
    listed.writable = info->status.write != 0;
    listed.global = info->status.globalOption != 0;
    static_cast<std::vector<Listed>*>(user)->push_back(std::move(listed));
}

bool isTemperature(const Listed& option) {
    std::string name = option.name;
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    return option.unit == "degC" || name.find("temperature") != std::string::npos;
}

} // namespace

std::vector<DeviceReading> AtracsysDeviceReadings::read(ftkLibrary library, std::uint64_t serialNumber) {
    std::vector<Listed> options;
    if (!library ||
        ftkEnumerateOptions(library, serialNumber, collectReadingOption, &options) != ftkError::FTK_OK)
        return {};
    std::vector<DeviceReading> readings;
    for (const Listed& option : options) {
        if (!option.readable || option.global)
            continue;
        char text[32] = {};
        if (option.type == ftkOptionType::FTK_INT32) {
            int32 value = 0;
            if (ftkGetInt32(library, serialNumber, option.id, &value, ftkOptionGetter::FTK_VALUE) !=
                ftkError::FTK_OK)
                continue;
            std::snprintf(text, sizeof(text), "%d", static_cast<int>(value));
        } else if (option.type == ftkOptionType::FTK_FLOAT32) {
            float32 value = 0.f;
            if (ftkGetFloat32(library, serialNumber, option.id, &value, ftkOptionGetter::FTK_VALUE) !=
                ftkError::FTK_OK)
                continue;
            std::snprintf(text, sizeof(text), "%.1f", static_cast<double>(value));
        } else {
            continue; // data options (files, folders) are not readings
        }
        DeviceReading reading;
        reading.name = option.name;
        reading.value = text;
        reading.unit = option.unit == "degC" ? "\u00B0C" : option.unit;
        reading.kind = isTemperature(option) ? DeviceReading::Kind::Temperature
                       : option.writable     ? DeviceReading::Kind::Setting
                                             : DeviceReading::Kind::Measurement;
        readings.push_back(std::move(reading));
    }
    return readings;
}

} // namespace Kestrion::SpryTrack
