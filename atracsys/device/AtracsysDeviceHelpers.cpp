#include "atracsys/device/AtracsysDeviceHelpers.h"

#include "host/core/Log.h"

#include <iomanip>
#include <sstream>

// Device-level lines use the empty category and no source position; like every host log line
// the message is only built when its level passes the global level and the category filter.
#define ATRACSYS_DEVICE_LOG(level, expr)                                                                     \
    do {                                                                                                     \
        const int atracsysLevel_ = (level);                                                                  \
        if (::Kestrion::Log::globalLevel() <= atracsysLevel_ &&                                              \
            ::Kestrion::Log::isAccepted(atracsysLevel_, std::string())) {                                    \
            std::ostringstream atracsysStream_;                                                              \
            atracsysStream_ << expr;                                                                         \
            ::Kestrion::Log::log(atracsysLevel_, std::string(), atracsysStream_.str(), "", -1);              \
        }                                                                                                    \
    } while (false)

namespace Kestrion::SpryTrack::AtracsysHelpers {

void assignDeviceNameFromType(DeviceData* device) {
    switch (device->type) {
    case ftkDeviceType::DEV_SIMULATOR:
        device->name = "fTk simulator";
        break;
    case ftkDeviceType::DEV_FUSIONTRACK_500:
        device->name = "fTk 500";
        break;
    case ftkDeviceType::DEV_FUSIONTRACK_250:
        device->name = "fTk 250";
        break;
    case ftkDeviceType::DEV_SPRYTRACK_180:
        device->name = "sTk 180";
        break;
    default:
        // Includes DEV_INFINITRACK and every model newer than the spryTrack 180.
        device->name = "UNKNOWN";
        break;
    }
}

void deviceEnumerator(std::uint64_t serialNumber, void* user, ftkDeviceType type) {
    if (user == nullptr)
        return;
    auto* device = static_cast<DeviceData*>(user);
    device->serialNumber = serialNumber;
    device->type = type;
    assignDeviceNameFromType(device);
}

void fusionTrackEnumerator(std::uint64_t serialNumber, void* user, ftkDeviceType type) {
    auto* device = static_cast<DeviceData*>(user);
    device->serialNumber = serialNumber;
    if (type == ftkDeviceType::DEV_SIMULATOR) {
        ATRACSYS_DEVICE_LOG(Log::Error, "AtracsysTracking: This device cannot be used with the simulator!");
        device->type = ftkDeviceType::DEV_UNKNOWN_DEVICE;
    } else {
        device->type = type;
    }
    assignDeviceNameFromType(device);
}

DeviceData retrieveLastDevice(ftkLibraryImp* lib, bool allowSimulator, bool quiet) {
    DeviceData device;
    // Each callback overwrites the whole record: with several devices the last one reported wins.
    const ftkError status =
        ftkEnumerateDevices(lib, allowSimulator ? deviceEnumerator : fusionTrackEnumerator, &device);

    if (status > ftkError::FTK_OK) {
        checkErrorAndLog(lib);
    } else if (status < ftkError::FTK_OK) {
        if (!quiet)
            checkErrorAndLog(lib);
        else if (device.serialNumber != 0)
            return device;
    }

    if (device.serialNumber == 0) {
        ATRACSYS_DEVICE_LOG(Log::Error, "AtracsysTracking: No "
                                            << "SpryTrack"
                                            << " device connected");
        return device;
    }
    if (!quiet)
        ATRACSYS_DEVICE_LOG(Log::Info, "AtracsysTracking: Detected " << device.name << ", SN 0x" << std::hex
                                                                     << std::setw(16) << std::setfill('0')
                                                                     << device.serialNumber);
    return device;
}

void checkErrorAndLog(ftkLibraryImp* lib) {
    char buffer[1024] = {};
    if (ftkGetLastErrorString(lib, sizeof buffer, buffer) == ftkError::FTK_OK) {
        buffer[sizeof buffer - 1] = '\0'; // never read past the buffer, whatever the library wrote
        ATRACSYS_DEVICE_LOG(Log::Error, "AtracsysTracking: " << buffer);
    } else {
        ATRACSYS_DEVICE_LOG(
            Log::Error, "AtracsysTracking: Could not retrieve error condition due to uninitialised library "
                        "handle.");
    }
}

} // namespace Kestrion::SpryTrack::AtracsysHelpers
