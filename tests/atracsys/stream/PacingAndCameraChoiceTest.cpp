// Frame pacing (the wait between acquisition rounds, 0: paced by the camera) and the choice of one
// camera among several by serial number, on the simulated camera.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "host/core/Properties.h"
#include "host/stream/DeviceFrameInfo.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;

namespace {

constexpr std::uint64_t FusionTrackSerial = 0x46544b3530300002;
constexpr std::uint64_t SpryTrackSerial = 0x53544b3138300002;

std::uint64_t deviceSerialOf(const std::shared_ptr<const CompoundStreamData>& data) {
    const auto tracking = trackingOf(data);
    const auto* info = tracking ? tracking->component<DeviceFrameInfo>() : nullptr;
    return info ? info->serialNumber() : 0;
}

} // namespace

TEST(FramePacing, RoundsFollowTheSettingWhileFailedFetchesKeepTheirWait) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Recorder recorder(stream);
    ASSERT_TRUE(stream.openWithMarkers());
    stream.setFramePacingMs(-5); // taken as 0
    EXPECT_LT(stream.round().count(), 10) << "camera-paced: the next round at once";
    // A failed fetch did not wait for the camera: repeating it at once would spin.
    stream.injectFaultAt(1, R"("kind": "fetchError", "code": "FTK_ERR_SYNC")");
    EXPECT_GE(stream.round().count(), 10);
    stream.setFramePacingMs(40);
    EXPECT_GE(stream.round().count(), 40);
    EXPECT_EQ(recorder.dataCount(), 2u);
}

TEST(FramePacing, CameraPacedFetchesSleepUntilTheNextFrameAndAreNeitherFailuresNorSpinning) {
    SceneGuard scene("tracking.json");
    ftkSimSetSteppedClock(false); // frames at the camera's 54 Hz
    TestSupport::LogCapture capture;
    ProbedStream stream;
    Recorder recorder(stream);
    stream.setFramePacingMs(0);
    ASSERT_TRUE(stream.openWithMarkers());
    const std::uint64_t serial = stream.serialNumber();
    ASSERT_TRUE(stream.start());
    ASSERT_TRUE(recorder.waitForData(20));
    const auto last = recorder.lastData();
    ASSERT_TRUE(stream.close());
    const auto counterOf = [](const std::shared_ptr<const CompoundStreamData>& data) {
        const auto* info = trackingOf(data)->component<DeviceFrameInfo>();
        return info ? info->frameCounter() : 0u;
    };
    // Until the camera's period is known (two frames) the wait is made of 1 ms attempts, at most
    // 19 per period (18.5 ms); then the worker sleeps until shortly before the next frame, and an
    // attempt lasts up to a period: about one fetch per frame. Waiting in 1 ms attempts all along
    // would make some 18 a frame, spinning thousands.
    const double periods = double(counterOf(last) - counterOf(recorder.dataAt(0))) + 2.0;
    EXPECT_LE(double(ftkSimFetchCount(serial)), double(recorder.dataCount()) + 19.0 * 3 + periods);
    // An empty attempt is part of the wait for the frame, not a failed fetch.
    for (const LogRecord& record : capture->records())
        EXPECT_LT(record.level, Log::Warning) << capture->dump();
}

TEST(FramePacing, PacingAndSerialAreConfiguredAndWrittenOnlyWhenNotDefault) {
    TestSupport::LogCapture capture;
    SpryTrack::AtracsysTrackingStream stream("stream");
    Properties defaults;
    stream.configuration(&defaults);
    EXPECT_FALSE(defaults.hasParam("reconnect")) << "workspaces without the choice stay as they are";
    Properties settings;
    settings.setParam("framePacingMs", 0);
    settings.setParam("cameraSerialNumber", std::string("0x46544B3530300002"));
    settings.setParam("reconnect", true);
    stream.configure(&settings);
    Properties written;
    stream.configuration(&written);
    EXPECT_EQ(written.param("framePacingMs", -1), 0);
    EXPECT_EQ(written.param("cameraSerialNumber", std::string()), "0x46544b3530300002");
    EXPECT_TRUE(written.param("reconnect", false));
    stream.setReconnect(false);
    stream.configure(&written); // the saved workspace reopened
    EXPECT_TRUE(stream.reconnect());

    // Broken input keeps the chosen camera and says why.
    settings.setParam("cameraSerialNumber", std::string("0x46544b35303000021")); // 17 digits
    stream.configure(&settings);
    EXPECT_EQ(stream.selectedCameraSerial(), FusionTrackSerial);
    EXPECT_TRUE(
        capture->contains(Log::Error, StreamCategory,
                          "The camera serial number \"0x46544b35303000021\" is not a number; it is ignored"));
}

TEST(CameraChoice, OpensTheChosenCameraOrNamesTheConnectedOnes) {
    SceneGuard scene("two-cameras.json");
    TestSupport::LogCapture capture;
    const HeldResources held;
    ProbedStream stream;
    Recorder recorder(stream);

    std::string error;
    const auto cameras = stream.connectedCameras(&error);
    ASSERT_EQ(cameras.size(), 2u) << error;
    EXPECT_EQ(std::make_pair(cameras[0].serialNumber, cameras[0].typeName),
              std::make_pair(FusionTrackSerial, std::string("fTk 500")));
    EXPECT_EQ(std::make_pair(cameras[1].serialNumber, cameras[1].typeName),
              std::make_pair(SpryTrackSerial, std::string("sTk 180")));
    held.expectBaseline("after listing while closed");

    // No choice: the last camera reported, as always.
    ASSERT_TRUE(stream.open());
    EXPECT_EQ(stream.cameraInUse().serialNumber, SpryTrackSerial);
    ASSERT_TRUE(stream.close());
    EXPECT_EQ(stream.cameraInUse().serialNumber, 0u);

    stream.selectCameraSerial(FusionTrackSerial);
    ASSERT_TRUE(stream.open());
    EXPECT_TRUE(
        capture->contains(Log::Info, "", "AtracsysTracking: Detected fTk 500, SN 0x46544b3530300002"));
    stream.round();
    EXPECT_EQ(deviceSerialOf(recorder.lastData()), FusionTrackSerial);
    ASSERT_TRUE(stream.close());

    stream.selectCameraSerial(0x1234);
    EXPECT_FALSE(stream.open());
    EXPECT_TRUE(capture->contains(Log::Error, "",
                                  "AtracsysTracking: Camera 0x0000000000001234 is not connected; connected: "
                                  "0x46544b3530300002, 0x53544b3138300002"));
    held.expectBaseline("after the refused open");
}
