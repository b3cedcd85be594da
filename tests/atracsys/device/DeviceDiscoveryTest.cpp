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

/// A scene of devices given as (model, serial) pairs, the last one with optional faults.
std::string scene(std::vector<std::pair<std::string, std::string>> devices, const std::string& faults = "") {
    std::string text = R"({"devices": [)";
    for (std::size_t i = 0; i < devices.size(); ++i)
        text += std::string(i ? ", " : "") + R"({"model": ")" + devices[i].first + R"(", "serial": ")" +
                devices[i].second + (i + 1 == devices.size() ? R"(", "faults": [)" + faults + "]}" : "\"}");
    return text + "]}";
}

std::string describe(const DeviceData& d) {
    return std::to_string(d.serialNumber) + "/" + std::to_string(static_cast<int>(d.type)) + "/" + d.name;
}

} // namespace

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
        EXPECT_EQ(capture->size(), 1u) << capture->dump();
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

    // Refused by type only, it is still "detected" (its serial is kept), under the name UNKNOWN.
    capture->clear();
    EXPECT_EQ(describe(retrieveLastDevice(camera.lib(), false, false)), "65261/127/UNKNOWN");
    EXPECT_TRUE(capture->contains(Log::Error, "",
                                  "AtracsysTracking: This device cannot be used with the simulator!"));
    EXPECT_TRUE(
        capture->contains(Log::Info, "", "AtracsysTracking: Detected UNKNOWN, SN 0x000000000000feed"));
    EXPECT_EQ(capture->size(), 2u) << capture->dump();
}

TEST(DeviceDiscovery, EnumerationWarningsAndErrorsAreLoggedWithTheSdkText) {
    // A warning is logged unless quiet; quiet with a device found logs nothing at all. An error is
    // always logged; a device reported before it is still returned.
    struct Case {
        std::string code;
        bool reportDevices, quiet, errorLine, detectedLine;
    };
    const Case cases[] = {
        {"FTK_WAR_USB_TOO_SLOW", true, false, true, true},
        {"FTK_WAR_USB_TOO_SLOW", true, true, false, false},
        {"FTK_WAR_USB_TOO_SLOW", false, true, false, false},
        {"FTK_ERR_INTERNAL", true, false, true, true},
        {"FTK_ERR_INTERNAL", true, true, true, false},
        {"FTK_ERR_INTERNAL", false, true, true, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code + (c.reportDevices ? " with device" : " without device") +
                     (c.quiet ? ", quiet" : ""));
        SimulatedCamera camera(scene({{"spryTrack 180", "0x42"}},
                                     R"({"kind": "enumerationStatus", "code": ")" + c.code +
                                         R"(", "reportDevices": )" + (c.reportDevices ? "true}" : "false}")));
        LogCapture capture;
        EXPECT_EQ(retrieveLastDevice(camera.lib(), true, c.quiet).serialNumber, c.reportDevices ? 0x42u : 0u);
        const std::string errorText = camera.lastErrorText();
        EXPECT_NE(errorText.find("<ftkError>"), std::string::npos) << errorText;
        EXPECT_EQ(capture->count(Log::Error, "", "AtracsysTracking: " + errorText), c.errorLine ? 1u : 0u);
        EXPECT_EQ(capture->count(Log::Info, "", "AtracsysTracking: Detected sTk 180, SN 0x0000000000000042"),
                  c.detectedLine ? 1u : 0u);
        EXPECT_EQ(capture->count(Log::Error, "", noDevice), c.reportDevices ? 0u : 1u);
        EXPECT_EQ(capture->size(), std::size_t(c.errorLine + c.detectedLine + !c.reportDevices))
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
    EXPECT_EQ(
        capture->count(Log::Error, "",
                       "AtracsysTracking: Could not retrieve error condition due to uninitialised library "
                       "handle."),
        2u)
        << capture->dump();
    EXPECT_EQ(capture->size(), 2u);
}
