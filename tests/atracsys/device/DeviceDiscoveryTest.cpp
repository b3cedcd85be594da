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

/// A scene of devices given as (model, serial) pairs, the last one with optional faults.
std::string scene(std::vector<std::pair<std::string, std::string>> devices, const std::string& faults = "") {
    std::string text = R"({"devices": [)";
    for (std::size_t i = 0; i < devices.size(); ++i)
        text += std::string(i ? ", " : "") + R"({"model": ")" + devices[i].first + R"(", "serial": ")" +
                devices[i].second + (i + 1 == devices.size() ? R"(", "faults": [)" + faults + "]}" : "\"}");
    return text + "]}";
}

std::string enumerationStatus(const std::string& code, bool reportDevices = true) {
    return R"({"kind": "enumerationStatus", "code": ")" + code + R"(", "reportDevices": )" +
           (reportDevices ? "true" : "false") + "}";
}

std::string describe(const DeviceData& d) {
    return std::to_string(d.serialNumber) + "/" + std::to_string(static_cast<int>(d.type)) + "/" + d.name;
}

std::string named(int type) {
    DeviceData device;
    device.type = static_cast<ftkDeviceType>(type);
    device.name = "previous";
    assignDeviceNameFromType(&device);
    return device.name;
}

} // namespace

TEST(DeviceDiscovery, TypesAreNamed) {
    const std::pair<int, const char*> names[] = {{0, "fTk simulator"}, {2, "fTk 500"}, {3, "fTk 250"},
                                                 {4, "sTk 180"},       {1, "UNKNOWN"}, {5, "UNKNOWN"},
                                                 {127, "UNKNOWN"},     {-1, "UNKNOWN"}};
    for (const auto& [type, name] : names)
        EXPECT_EQ(named(type), name) << type;
    deviceEnumerator(0x5, nullptr, ftkDeviceType::DEV_SPRYTRACK_180); // a missing record is ignored
}

TEST(DeviceDiscovery, NoneOneOrSeveralDevices) {
    {
        SimulatedCamera camera(scene({}));
        for (bool quiet : {false, true}) {
            LogCapture capture;
            EXPECT_EQ(describe(retrieveLastDevice(camera.lib(), false, quiet)), "0/0/");
            EXPECT_TRUE(capture->contains(Log::Error, "", noDevice)) << "even when quiet";
            EXPECT_EQ(capture->size(), 1u) << capture->dump();
        }
    }
    {
        SimulatedCamera camera(scene({{"spryTrack 180", "0xABCDEF12"}}));
        LogCapture capture;
        EXPECT_EQ(describe(retrieveLastDevice(camera.lib(), true, false)), "2882400018/4/sTk 180");
        EXPECT_TRUE(
            capture->contains(Log::Info, "", "AtracsysTracking: Detected sTk 180, SN 0x00000000abcdef12"));
        ASSERT_EQ(capture->size(), 1u) << capture->dump();
        // Device lines have no source position.
        EXPECT_EQ(capture->records()[0].file, "");
        EXPECT_EQ(capture->records()[0].line, -1);
    }
    {
        // The last device reported wins; newer models have no name of their own.
        SimulatedCamera camera(scene({{"fusionTrack 500", "0x500"}, {"fusionTrack 250", "0x1234"}}));
        SimulatedCamera newer(scene({{"fusionTrack 250", "0x1"}, {"spryTrack 300", "0x300"}}));
        LogCapture capture;
        EXPECT_EQ(describe(retrieveLastDevice(camera.lib(), true, false)), "4660/3/fTk 250");
        EXPECT_EQ(describe(retrieveLastDevice(newer.lib(), true, false)), "768/5/UNKNOWN");
        EXPECT_TRUE(
            capture->contains(Log::Info, "", "AtracsysTracking: Detected fTk 250, SN 0x0000000000001234"));
        EXPECT_TRUE(
            capture->contains(Log::Info, "", "AtracsysTracking: Detected UNKNOWN, SN 0x0000000000000300"));
        EXPECT_EQ(capture->size(), 2u) << capture->dump();
    }
}

TEST(DeviceDiscovery, TheSimulatorDeviceIsAcceptedOrRefusedByTheCallbackChosen) {
    SimulatedCamera camera(scene({{"simulator", "0xFEED"}}));
    LogCapture capture;
    EXPECT_EQ(describe(retrieveLastDevice(camera.lib(), true, false)), "65261/0/fTk simulator");
    EXPECT_TRUE(
        capture->contains(Log::Info, "", "AtracsysTracking: Detected fTk simulator, SN 0x000000000000feed"));
    EXPECT_EQ(capture->size(), 1u) << capture->dump();

    // Refused by type only, it is still "detected" (its serial is kept), under the name UNKNOWN.
    capture->clear();
    EXPECT_EQ(describe(retrieveLastDevice(camera.lib(), false, false)), "65261/127/UNKNOWN");
    EXPECT_TRUE(capture->contains(Log::Error, "", simulatorRefused));
    EXPECT_TRUE(
        capture->contains(Log::Info, "", "AtracsysTracking: Detected UNKNOWN, SN 0x000000000000feed"));
    EXPECT_EQ(capture->size(), 2u) << capture->dump();
}

TEST(DeviceDiscovery, EnumerationWarningsAndErrorsAreLoggedWithTheSdkText) {
    struct Case {
        std::string code;
        bool reportDevices, quiet;
        std::uint64_t serial;
        bool errorLine, detectedLine, noDeviceLine;
    };
    const Case cases[] = {
        // A warning is logged unless quiet; quiet with a device found logs nothing at all.
        {"FTK_WAR_USB_TOO_SLOW", true, false, 0x42, true, true, false},
        {"FTK_WAR_USB_TOO_SLOW", true, true, 0x42, false, false, false},
        {"FTK_WAR_USB_TOO_SLOW", false, true, 0, false, false, true},
        // An error is always logged; a device reported before it is still returned.
        {"FTK_ERR_INTERNAL", true, false, 0x42, true, true, false},
        {"FTK_ERR_INTERNAL", true, true, 0x42, true, false, false},
        {"FTK_ERR_INTERNAL", false, true, 0, true, false, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code + (c.reportDevices ? " with device" : " without device") +
                     (c.quiet ? ", quiet" : ""));
        SimulatedCamera camera(
            scene({{"spryTrack 180", "0x42"}}, enumerationStatus(c.code, c.reportDevices)));
        LogCapture capture;
        EXPECT_EQ(retrieveLastDevice(camera.lib(), true, c.quiet).serialNumber, c.serial);
        const std::string errorText = camera.lastErrorText();
        EXPECT_NE(errorText.find("<ftkError>"), std::string::npos) << errorText;
        EXPECT_EQ(capture->count(Log::Error, "", "AtracsysTracking: " + errorText), c.errorLine ? 1u : 0u);
        EXPECT_EQ(capture->count(Log::Info, "", "AtracsysTracking: Detected sTk 180, SN 0x0000000000000042"),
                  c.detectedLine ? 1u : 0u);
        EXPECT_EQ(capture->count(Log::Error, "", noDevice), c.noDeviceLine ? 1u : 0u);
        EXPECT_EQ(capture->size(), std::size_t(c.errorLine + c.detectedLine + c.noDeviceLine))
            << capture->dump();
    }
}

TEST(DeviceDiscovery, CheckErrorAndLogReportsTheSdkTextOrAnUnusableHandle) {
    SimulatedCamera camera(scene({{"spryTrack 180", "0x42"}}));
    std::int32_t value = 0;
    EXPECT_NE(ftkGetInt32(camera.lib(), 0x43, 1, &value, ftkOptionGetter::FTK_VALUE), ftkError::FTK_OK);
    LogCapture capture;
    // The text is logged unaltered and stays on the handle.
    checkErrorAndLog(camera.lib());
    checkErrorAndLog(camera.lib());
    EXPECT_EQ(capture->count(Log::Error, "", "AtracsysTracking: " + camera.lastErrorText()), 2u)
        << capture->dump();

    capture->clear();
    checkErrorAndLog(nullptr);
    ftkLibrary closed = ftkInit();
    ftkLibrary stale = closed;
    ASSERT_EQ(ftkClose(&closed), ftkError::FTK_OK);
    checkErrorAndLog(stale);
    EXPECT_EQ(capture->count(Log::Error, "", noHandle), 2u) << capture->dump();
    EXPECT_EQ(capture->size(), 2u);
}
