#include "atracsys/device/AtracsysDeviceHelpers.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::SpryTrack::AtracsysHelpers;

namespace {

const char* const simulatorRefused = "AtracsysTracking: This device cannot be used with the simulator!";

std::string nameOf(int type) {
    DeviceData device;
    device.type = static_cast<ftkDeviceType>(type);
    device.name = "previous";
    assignDeviceNameFromType(&device);
    return device.name;
}

} // namespace

TEST(DeviceNaming, EachDeviceTypeHasItsDisplayName) {
    const DeviceData fresh;
    EXPECT_EQ(fresh.serialNumber, 0u);
    EXPECT_EQ(static_cast<int>(fresh.type), 0);
    EXPECT_EQ(fresh.name, "");

    EXPECT_EQ(nameOf(0), "fTk simulator");
    EXPECT_EQ(nameOf(2), "fTk 500");
    EXPECT_EQ(nameOf(3), "fTk 250");
    EXPECT_EQ(nameOf(4), "sTk 180");
    for (int type : {1, 5, 6, 126, 127, -1})
        EXPECT_EQ(nameOf(type), "UNKNOWN") << "type " << type;
}

TEST(DeviceNaming, DeviceEnumeratorAcceptsEveryTypeAndIgnoresANullRecord) {
    TestSupport::LogCapture capture;
    DeviceData device;
    deviceEnumerator(0x1234, &device, ftkDeviceType::DEV_FUSIONTRACK_250);
    EXPECT_EQ(device.serialNumber, 0x1234u);
    EXPECT_EQ(device.type, ftkDeviceType::DEV_FUSIONTRACK_250);
    EXPECT_EQ(device.name, "fTk 250");

    // A later call overwrites the whole record.
    deviceEnumerator(0x99, &device, ftkDeviceType::DEV_SIMULATOR);
    EXPECT_EQ(device.serialNumber, 0x99u);
    EXPECT_EQ(device.type, ftkDeviceType::DEV_SIMULATOR);
    EXPECT_EQ(device.name, "fTk simulator");

    deviceEnumerator(0x5, nullptr, ftkDeviceType::DEV_SPRYTRACK_180);
    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}

TEST(DeviceNaming, FusionTrackEnumeratorRefusesTheSimulatorButKeepsItsSerial) {
    TestSupport::LogCapture capture;
    DeviceData device;
    fusionTrackEnumerator(0xABC, &device, ftkDeviceType::DEV_SIMULATOR);
    EXPECT_EQ(device.serialNumber, 0xABCu);
    EXPECT_EQ(device.type, ftkDeviceType::DEV_UNKNOWN_DEVICE);
    EXPECT_EQ(device.name, "UNKNOWN");
    EXPECT_EQ(capture->count(Log::Error, "", simulatorRefused), 1u) << capture->dump();
    ASSERT_EQ(capture->size(), 1u);
    // Device-level lines carry no source position.
    EXPECT_EQ(capture->records()[0].file, "");
    EXPECT_EQ(capture->records()[0].line, -1);

    capture->clear();
    fusionTrackEnumerator(0xDEF, &device, ftkDeviceType::DEV_SPRYTRACK_180);
    EXPECT_EQ(device.serialNumber, 0xDEFu);
    EXPECT_EQ(device.type, ftkDeviceType::DEV_SPRYTRACK_180);
    EXPECT_EQ(device.name, "sTk 180");
    fusionTrackEnumerator(0xDEF, &device, ftkDeviceType::DEV_INFINITRACK);
    EXPECT_EQ(device.type, ftkDeviceType::DEV_INFINITRACK);
    EXPECT_EQ(device.name, "UNKNOWN");
    EXPECT_EQ(capture->size(), 0u) << capture->dump();
}
