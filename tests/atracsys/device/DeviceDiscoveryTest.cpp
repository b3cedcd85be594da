#include "atracsys/device/AtracsysDeviceHelpers.h"
#include "tests/atracsys/device/SimulatedCamera.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::SpryTrack::AtracsysHelpers;
using Kestrion::TestSupport::LogCapture;
using Kestrion::TestSupport::SimulatedCamera;

namespace {

const char* const noDevice = "AtracsysTracking: No SpryTrack device connected";
const char* const simulatorRefused = "AtracsysTracking: This device cannot be used with the simulator!";
const char* const noHandle =
    "AtracsysTracking: Could not retrieve error condition due to uninitialised library handle.";

std::string scene(const std::string& devices) {
    return R"({"devices": [)" + devices + "]}";
}

std::string device(const std::string& model, const std::string& serial, const std::string& faults = "") {
    std::string text = R"({"model": ")" + model + R"(", "serial": ")" + serial + R"(")";
    if (!faults.empty())
        text += R"(, "faults": [)" + faults + "]";
    return text + "}";
}

void expectDevice(const DeviceData& found, std::uint64_t serial, ftkDeviceType type,
                  const std::string& name) {
    EXPECT_EQ(found.serialNumber, serial);
    EXPECT_EQ(found.type, type);
    EXPECT_EQ(found.name, name);
}

} // namespace

TEST(DeviceDiscovery, WithoutADeviceTheMissingDeviceLineIsWrittenEvenWhenQuiet) {
    SimulatedCamera camera(scene(""));
    for (bool allowSimulator : {true, false}) {
        for (bool quiet : {false, true}) {
            LogCapture capture;
            const DeviceData found = retrieveLastDevice(camera.lib(), allowSimulator, quiet);
            expectDevice(found, 0, ftkDeviceType::DEV_SIMULATOR, "");
            EXPECT_EQ(capture->count(Log::Error, "", noDevice), 1u) << capture->dump();
            EXPECT_EQ(capture->size(), 1u) << capture->dump();
        }
    }
}

TEST(DeviceDiscovery, OneDeviceIsNamedAndLoggedWithItsSixteenDigitSerial) {
    SimulatedCamera camera(scene(device("spryTrack 180", "0xABCDEF12")));
    {
        LogCapture capture;
        expectDevice(retrieveLastDevice(camera.lib(), true, false), 0xABCDEF12,
                     ftkDeviceType::DEV_SPRYTRACK_180, "sTk 180");
        EXPECT_TRUE(
            capture->contains(Log::Info, "", "AtracsysTracking: Detected sTk 180, SN 0x00000000abcdef12"))
            << capture->dump();
        ASSERT_EQ(capture->size(), 1u) << capture->dump();
        EXPECT_EQ(capture->records()[0].file, "");
        EXPECT_EQ(capture->records()[0].line, -1);
    }
    {
        // Quiet: the same device, no line at all; refusing the simulator changes nothing here.
        LogCapture capture;
        expectDevice(retrieveLastDevice(camera.lib(), false, true), 0xABCDEF12,
                     ftkDeviceType::DEV_SPRYTRACK_180, "sTk 180");
        EXPECT_EQ(capture->size(), 0u) << capture->dump();
    }
}

TEST(DeviceDiscovery, WithSeveralDevicesTheLastOneReportedWins) {
    SimulatedCamera camera(
        scene(device("fusionTrack 500", "0x500") + ", " + device("fusionTrack 250", "0x1234")));
    LogCapture capture;
    expectDevice(retrieveLastDevice(camera.lib(), true, false), 0x1234, ftkDeviceType::DEV_FUSIONTRACK_250,
                 "fTk 250");
    EXPECT_TRUE(
        capture->contains(Log::Info, "", "AtracsysTracking: Detected fTk 250, SN 0x0000000000001234"));
    EXPECT_EQ(capture->countContaining("Detected"), 1u) << capture->dump();
    EXPECT_EQ(capture->size(), 1u) << capture->dump();

    // Newer models have no name of their own.
    SimulatedCamera newer(scene(device("fusionTrack 250", "0x1") + ", " + device("spryTrack 300", "0x300")));
    capture->clear();
    expectDevice(retrieveLastDevice(newer.lib(), true, false), 0x300, ftkDeviceType::DEV_SPRYTRACK_300,
                 "UNKNOWN");
    EXPECT_TRUE(
        capture->contains(Log::Info, "", "AtracsysTracking: Detected UNKNOWN, SN 0x0000000000000300"));
}

TEST(DeviceDiscovery, TheSimulatorDeviceIsAcceptedOrRefusedByTheCallbackChosen) {
    SimulatedCamera camera(scene(device("simulator", "0xFEED")));
    {
        LogCapture capture;
        expectDevice(retrieveLastDevice(camera.lib(), true, false), 0xFEED, ftkDeviceType::DEV_SIMULATOR,
                     "fTk simulator");
        EXPECT_TRUE(capture->contains(Log::Info, "",
                                      "AtracsysTracking: Detected fTk simulator, SN 0x000000000000feed"));
        EXPECT_EQ(capture->size(), 1u) << capture->dump();
    }
    {
        // Refused: the serial is kept, so the device is still "detected", under the name UNKNOWN.
        LogCapture capture;
        expectDevice(retrieveLastDevice(camera.lib(), false, false), 0xFEED,
                     ftkDeviceType::DEV_UNKNOWN_DEVICE, "UNKNOWN");
        EXPECT_EQ(capture->count(Log::Error, "", simulatorRefused), 1u);
        EXPECT_TRUE(
            capture->contains(Log::Info, "", "AtracsysTracking: Detected UNKNOWN, SN 0x000000000000feed"));
        EXPECT_EQ(capture->size(), 2u) << capture->dump();
    }
    {
        LogCapture capture;
        expectDevice(retrieveLastDevice(camera.lib(), false, true), 0xFEED, ftkDeviceType::DEV_UNKNOWN_DEVICE,
                     "UNKNOWN");
        EXPECT_EQ(capture->count(Log::Error, "", simulatorRefused), 1u);
        EXPECT_EQ(capture->size(), 1u) << capture->dump();
    }
}

TEST(DeviceDiscovery, AWarningStatusIsLoggedUnlessQuietAndTheDeviceIsStillReturned) {
    const std::string warning = R"({"kind": "enumerationStatus", "code": "FTK_WAR_USB_TOO_SLOW"})";
    {
        SimulatedCamera camera(scene(device("spryTrack 180", "0x42", warning)));
        LogCapture capture;
        expectDevice(retrieveLastDevice(camera.lib(), true, false), 0x42, ftkDeviceType::DEV_SPRYTRACK_180,
                     "sTk 180");
        const std::string errorText = camera.lastErrorText();
        EXPECT_NE(errorText.find("<ftkError>"), std::string::npos) << errorText;
        EXPECT_TRUE(capture->contains(Log::Error, "", "AtracsysTracking: " + errorText)) << capture->dump();
        EXPECT_TRUE(
            capture->contains(Log::Info, "", "AtracsysTracking: Detected sTk 180, SN 0x0000000000000042"));
        EXPECT_EQ(capture->size(), 2u) << capture->dump();
    }
    {
        // Quiet with a device found: returned at once, without any line.
        SimulatedCamera camera(scene(device("spryTrack 180", "0x42", warning)));
        LogCapture capture;
        expectDevice(retrieveLastDevice(camera.lib(), true, true), 0x42, ftkDeviceType::DEV_SPRYTRACK_180,
                     "sTk 180");
        EXPECT_EQ(capture->size(), 0u) << capture->dump();
    }
    {
        // Quiet without a device: the missing-device line only.
        SimulatedCamera camera(scene(device(
            "spryTrack 180", "0x42",
            R"({"kind": "enumerationStatus", "code": "FTK_WAR_USB_TOO_SLOW", "reportDevices": false})")));
        LogCapture capture;
        expectDevice(retrieveLastDevice(camera.lib(), true, true), 0, ftkDeviceType::DEV_SIMULATOR, "");
        EXPECT_EQ(capture->count(Log::Error, "", noDevice), 1u);
        EXPECT_EQ(capture->size(), 1u) << capture->dump();
    }
}

TEST(DeviceDiscovery, AnErrorStatusIsAlwaysLoggedAndADeviceReportedBeforeItIsKept) {
    const std::string error = R"({"kind": "enumerationStatus", "code": "FTK_ERR_INTERNAL"})";
    {
        SimulatedCamera camera(scene(device("fusionTrack 500", "0x77", error)));
        LogCapture capture;
        expectDevice(retrieveLastDevice(camera.lib(), true, false), 0x77, ftkDeviceType::DEV_FUSIONTRACK_500,
                     "fTk 500");
        EXPECT_TRUE(capture->contains(Log::Error, "", "AtracsysTracking: " + camera.lastErrorText()));
        EXPECT_TRUE(
            capture->contains(Log::Info, "", "AtracsysTracking: Detected fTk 500, SN 0x0000000000000077"));
        EXPECT_EQ(capture->size(), 2u) << capture->dump();
    }
    {
        // Quiet does not silence the error, only the detection line.
        SimulatedCamera camera(scene(device("fusionTrack 500", "0x77", error)));
        LogCapture capture;
        EXPECT_EQ(retrieveLastDevice(camera.lib(), true, true).serialNumber, 0x77u);
        EXPECT_TRUE(capture->contains(Log::Error, "", "AtracsysTracking: " + camera.lastErrorText()));
        EXPECT_EQ(capture->size(), 1u) << capture->dump();
    }
    {
        SimulatedCamera camera(scene(
            device("fusionTrack 500", "0x77",
                   R"({"kind": "enumerationStatus", "code": "FTK_ERR_INTERNAL", "reportDevices": false})")));
        LogCapture capture;
        EXPECT_EQ(retrieveLastDevice(camera.lib(), true, true).serialNumber, 0u);
        EXPECT_TRUE(capture->contains(Log::Error, "", "AtracsysTracking: " + camera.lastErrorText()));
        EXPECT_EQ(capture->count(Log::Error, "", noDevice), 1u);
        EXPECT_EQ(capture->size(), 2u) << capture->dump();
    }
}

TEST(DeviceDiscovery, CheckErrorAndLogReportsTheSdkTextOrAnUnusableHandle) {
    SimulatedCamera camera(scene(device("spryTrack 180", "0x42")));
    // A failed call leaves its text on the handle; it is logged unaltered, and more than once.
    std::int32_t value = 0;
    EXPECT_NE(ftkGetInt32(camera.lib(), 0x43, 1, &value, ftkOptionGetter::FTK_VALUE), ftkError::FTK_OK);
    {
        LogCapture capture;
        checkErrorAndLog(camera.lib());
        checkErrorAndLog(camera.lib());
        const std::string text = camera.lastErrorText();
        EXPECT_NE(text.find("<errors>"), std::string::npos) << text;
        EXPECT_EQ(capture->count(Log::Error, "", "AtracsysTracking: " + text), 2u) << capture->dump();
        EXPECT_EQ(capture->size(), 2u);
    }
    {
        LogCapture capture;
        checkErrorAndLog(nullptr);
        ftkLibrary closed = ftkInit();
        ASSERT_NE(closed, nullptr);
        ftkLibrary stale = closed;
        ASSERT_EQ(ftkClose(&closed), ftkError::FTK_OK);
        checkErrorAndLog(stale);
        EXPECT_EQ(capture->count(Log::Error, "", noHandle), 2u) << capture->dump();
        EXPECT_EQ(capture->size(), 2u);
    }
}

TEST(DeviceDiscovery, DeviceLinesPassTheGlobalLevelAndTheEmptyCategoryFilter) {
    SimulatedCamera camera(scene(device("simulator", "0x42")));
    {
        // Above info: the detection line is dropped, errors stay.
        LogCapture capture(Log::Warning);
        EXPECT_EQ(retrieveLastDevice(camera.lib(), false, false).serialNumber, 0x42u);
        EXPECT_EQ(capture->count(Log::Error, "", simulatorRefused), 1u);
        EXPECT_EQ(capture->size(), 1u) << capture->dump();
    }
    {
        // A level set for the empty category silences them all.
        LogCapture capture;
        Log::setCategoryLevel("", Log::Fatal);
        EXPECT_EQ(retrieveLastDevice(camera.lib(), false, false).serialNumber, 0x42u);
        checkErrorAndLog(nullptr);
        Log::clearCategoryLevels();
        EXPECT_EQ(capture->size(), 0u) << capture->dump();
    }
}
