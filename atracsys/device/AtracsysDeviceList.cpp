#include "atracsys/device/AtracsysDeviceList.h"

#include "host/core/Log.h"

#include <cstdio>

namespace Kestrion::SpryTrack::AtracsysHelpers {

namespace {

std::string serialText(std::uint64_t serialNumber) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%016llx", static_cast<unsigned long long>(serialNumber));
    return text;
}

void appendDevice(std::uint64_t serialNumber, void* user, ftkDeviceType type) {
    DeviceData device;
    deviceEnumerator(serialNumber, &device, type);
    static_cast<std::vector<DeviceData>*>(user)->push_back(std::move(device));
}

} // namespace

std::vector<DeviceData> listDevices(ftkLibraryImp* lib) {
    std::vector<DeviceData> devices;
    if (ftkEnumerateDevices(lib, appendDevice, &devices) > ftkError::FTK_OK)
        checkErrorAndLog(lib);
    return devices;
}

DeviceData selectDevice(ftkLibraryImp* lib, std::uint64_t serialNumber) {
    if (serialNumber == 0)
        return retrieveLastDevice(lib, true, false);
    std::string connected;
    for (const DeviceData& device : listDevices(lib)) {
        if (device.serialNumber == serialNumber) {
            KESTRION_LOG_INFO("", "AtracsysTracking: Detected " << device.name << ", SN "
                                                                << serialText(serialNumber));
            return device;
        }
        connected += (connected.empty() ? "" : ", ") + serialText(device.serialNumber);
    }
    KESTRION_LOG_ERROR("", "AtracsysTracking: Camera " << serialText(serialNumber)
                                                       << " is not connected; connected: "
                                                       << (connected.empty() ? "none" : connected));
    return {};
}

} // namespace Kestrion::SpryTrack::AtracsysHelpers
