// A recording made while the stream ran becomes the camera: the stream opened afterwards plays
// it, with the recorded camera's serial number and every recorded frame; a file that is no
// recording is refused with its name and the problem.

#include "tests/atracsys/stream/StreamTestSupport.h"

#include "atracsys/device/AtracsysReplayDevice.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace Kestrion;
using namespace Kestrion::TrackingStreamTest;

TEST(ReplayDevice, ARecordingReplaysAsTheCameraAndABrokenFileIsRefused) {
    SceneGuard scene("tracking.json");
    TestSupport::LogCapture log;
    const auto file =
        (std::filesystem::temp_directory_path() / (std::to_string(::getpid()) + "-replay.krec")).string();
    std::filesystem::remove(file);
    std::uint64_t serial = 0;
    std::optional<RecordingStatus> recorded;
    {
        ProbedStream stream;
        ASSERT_TRUE(stream.openWithMarkers() && stream.start());
        serial = stream.cameraInUse().serialNumber;
        ASSERT_TRUE(stream.recordTo(file, false));
        ASSERT_TRUE(
            waitFor([&] { return stream.recordingStatus() && stream.recordingStatus()->frames >= 30; }));
        stream.stopRecording();
        ASSERT_TRUE(
            waitFor([&] { return stream.recordingStatus()->state == RecordingStatus::State::Complete; }));
        recorded = stream.recordingStatus();
    }

    ASSERT_TRUE(SpryTrack::AtracsysReplayDevice::available());
    std::string error;
    ASSERT_TRUE(SpryTrack::AtracsysReplayDevice::load(file, false, error)) << error;
    {
        ProbedStream stream;
        Recorder data(stream);
        ASSERT_TRUE(stream.open());
        EXPECT_EQ(stream.cameraInUse().serialNumber, serial);
        ASSERT_TRUE(stream.start());
        ASSERT_TRUE(waitFor([&] { return stream.health().snapshot().state == StreamHealth::State::Ended; }));
        EXPECT_EQ(data.dataCount(), recorded->frames) << "every recorded frame, once";
        stream.close();
    }

    const std::string notARecording = dataFile("geometry1000.ini");
    EXPECT_FALSE(SpryTrack::AtracsysReplayDevice::load(notARecording, false, error));
    EXPECT_NE(error.find(notARecording), std::string::npos) << error;
    EXPECT_FALSE(SpryTrack::AtracsysReplayDevice::load(file + ".missing", false, error));
    EXPECT_NE(error.find(file + ".missing"), std::string::npos) << error;
    ftkSimResetScene();
    std::filesystem::remove(file);
}
