// A recording played back as the simulated camera: frames as recorded, markers as recorded or
// found again, the end of the recording, and recordings that cannot be played.

#include "tests/simulator/SimulatorTestSupport.h"

#include "recording/RecordingWriter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

using namespace Kestrion::SimulatorTest;
namespace Recording = Kestrion::Recording;

namespace {

constexpr std::uint64_t Serial = 0x46544b3530300007ull;

/// Geometry 1000 of the default scene, 800 mm in front of the camera.
const float Marker1000[4][3] = {{0, 0, 800}, {31, 82, 800}, {96, -10, 800}, {61, 46, 800}};

Recording::Frame recordedFrame(std::uint32_t counter, bool images) {
    Recording::Frame f;
    f.hasImageHeader = true;
    f.header = {1795581503000000ull + counter * 3000ull, 11, 500 + counter, 0, 32, 16, 32};
    f.statuses[static_cast<std::size_t>(Recording::Container::Markers)] = counter == 1 ? -1 : 0;
    for (std::uint32_t i = 0; i < 4; ++i) {
        f.rawLeft.push_back({100.f + float(i), 200.f, 0, 30 + i, 5, 6});
        f.fiducials.push_back(
            {0, i, i, {Marker1000[i][0], Marker1000[i][1], Marker1000[i][2]}, 0.2f, 0.01f, 1.f});
    }
    f.rawRight = f.rawLeft;
    Recording::Marker m;
    m.trackingId = 7;
    m.geometryId = 1000;
    m.presenceMask = 0b1111;
    m.correspondences = {0, 1, 2, 3, Recording::Marker::InvalidIndex, Recording::Marker::InvalidIndex};
    m.rotation = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    m.translationMM = {0.f, 0.f, 800.f + float(counter)}; // differs from the fiducials on purpose
    m.registrationErrorMM = 0.25f;
    f.markers = {m};
    f.hasImages = images;
    if (images) {
        f.imageLeft.assign(32 * 16, std::uint8_t(counter));
        f.imageRight.assign(32 * 16, std::uint8_t(counter + 100));
    }
    return f;
}

/// `frames` recorded frames 3 ms apart, or at `timesUS` after the first when given.
std::string writeRecording(const std::string& name, int frames, bool images,
                           const std::vector<std::uint64_t>& timesUS = {}) {
    const std::string file = (std::filesystem::temp_directory_path() / name).string();
    std::filesystem::remove(file);
    Recording::SessionHeader header;
    header.deviceType = static_cast<std::int32_t>(ftkDeviceType::DEV_FUSIONTRACK_500);
    header.serialNumber = Serial;
    header.withImages = images;
    Recording::RecordingWriter writer;
    EXPECT_TRUE(writer.open(file, header)) << writer.error();
    for (int i = 0; i < frames; ++i) {
        Recording::Frame frame = recordedFrame(static_cast<std::uint32_t>(i), images);
        if (!timesUS.empty())
            frame.header.timestampUS = 1795581503000000ull + timesUS[i];
        writer.write(frame);
    }
    EXPECT_TRUE(writer.finish(0)) << writer.error();
    return file;
}

ftkGeometry geometry1000() {
    ftkGeometry g{};
    g.geometryId = 1000;
    g.pointsCount = 4;
    for (int i = 0; i < 4; ++i)
        g.positions[i] = {Marker1000[i][0], Marker1000[i][1], 0.f};
    return g;
}

} // namespace

TEST(Replay, FramesComeAsRecordedThenNoMore) {
    SceneGuard scene;
    const std::string file = writeRecording("replay-recorded.krec", 3, false);
    ASSERT_TRUE(ftkSimLoadReplay(file.c_str(), false)) << controlError();
    Camera camera;
    EXPECT_EQ(camera.serial, Serial);
    EXPECT_EQ(camera.type, ftkDeviceType::DEV_FUSIONTRACK_500);
    // The end is visible through the interface: a read-only option found by its name.
    const uint32 ended = camera.option("Replay ended");
    int32 value = -1;
    EXPECT_EQ(camera.getInt(ended, ftkOptionGetter::FTK_VALUE, &value), ftkError::FTK_OK);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(camera.setInt(ended, 1), ftkError::FTK_ERR_INV_OPT_ACC);
    for (std::uint32_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        ASSERT_EQ(camera.fetch(), ftkError::FTK_OK) << camera.errorText();
        EXPECT_EQ(camera.getInt(ended, ftkOptionGetter::FTK_VALUE, &value), ftkError::FTK_OK);
        EXPECT_EQ(value, i == 2 ? 1 : 0) << "ended once the last frame was delivered, not before";
        const ftkFrameQuery& q = *camera.frame;
        EXPECT_EQ(+q.imageHeader->counter, 500 + i);
        // Device times as recorded, whatever clock the recording's camera had (here the epoch's).
        EXPECT_EQ(+q.imageHeader->timestampUS, 1795581503000000ull + i * 3000ull);
        EXPECT_EQ(+q.imageHeader->desynchroUS, 11u);
        ASSERT_EQ(+q.threeDFiducialsCount, 4u);
        EXPECT_EQ(+q.threeDFiducials[1].positionMM.y, 82.f);
        EXPECT_EQ(+q.rawDataLeft[3].pixelsCount, 33u);
        ASSERT_EQ(+q.markersCount, 1u); // no geometry registered: the markers are the recording's
        EXPECT_EQ(+q.markers[0].id, 7u);
        EXPECT_EQ(+q.markers[0].translationMM[2], 800.f + float(i));
        EXPECT_EQ(+q.markers[0].registrationErrorMM, 0.25f);
        EXPECT_EQ(static_cast<int>(q.markersStat), i == 1 ? -1 : 0);
    }
    EXPECT_EQ(camera.fetch(), ftkError::FTK_WAR_NO_FRAME);
    EXPECT_EQ(camera.errorText().find("The recording " + file + " ended after 3 frames") != std::string::npos,
              true)
        << camera.errorText();
    EXPECT_EQ(camera.getInt(ended, ftkOptionGetter::FTK_VALUE, &value), ftkError::FTK_OK);
    EXPECT_EQ(value, 1);
    int64 exposure = 0;
    EXPECT_FALSE(ftkSimGetExposureTime(Serial, 500, &exposure)) << "a replay's exposures are not known";

    // A camera has no such option.
    ASSERT_TRUE(ftkSimResetScene());
    Camera live;
    for (const OptionInfo& option : enumerateOptions(live.lib, live.serial))
        EXPECT_NE(option.name, "Replay ended");
}

// On the free-running clock each frame comes as long after the first as recorded, and after the
// last one a fetch waits its whole timeout, like a camera that sends nothing more.
TEST(Replay, FreeRunningReplayKeepsTheRecordedTimesAndWaitsAtTheEnd) {
    SceneGuard scene(std::string(), false);
    // Two frames 3 ms apart, then one 20 s later (at the average rate the second would come
    // after 10 s).
    const std::string file = writeRecording("replay-paced.krec", 3, false, {0, 3000, 20000000});
    ASSERT_TRUE(ftkSimLoadReplay(file.c_str(), false)) << controlError();
    Camera camera;
    ASSERT_EQ(camera.fetch(100), ftkError::FTK_OK);
    ASSERT_EQ(camera.fetch(5000), ftkError::FTK_OK) << camera.errorText();
    EXPECT_EQ(+camera.frame->imageHeader->counter, 501u);
    EXPECT_EQ(camera.fetch(50), ftkError::FTK_WAR_NO_FRAME);

    const std::string shortFile = writeRecording("replay-ended.krec", 1, false);
    ASSERT_TRUE(ftkSimLoadReplay(shortFile.c_str(), false)) << controlError();
    Camera replayed;
    ASSERT_EQ(replayed.fetch(100), ftkError::FTK_OK);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(replayed.fetch(50), ftkError::FTK_WAR_NO_FRAME);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(50));
    EXPECT_NE(replayed.errorText().find("ended after 1 frames"), std::string::npos) << replayed.errorText();
}

// The recorded fiducials matched again with the geometry registered now: the pose comes from the
// fiducials, not from the recorded marker.
TEST(Replay, MatchedMarkersComeFromTheRecordedFiducials) {
    SceneGuard scene;
    const std::string file = writeRecording("replay-matched.krec", 2, false);
    ASSERT_TRUE(ftkSimLoadReplay(file.c_str(), true)) << controlError();
    Camera camera;
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    EXPECT_EQ(+camera.frame->markersCount, 0u);
    ASSERT_EQ(camera.setGeometry(geometry1000()), ftkError::FTK_OK);
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    ASSERT_EQ(+camera.frame->markersCount, 1u);
    EXPECT_NEAR(+camera.frame->markers[0].translationMM[2], 800.f, 1e-3);
    EXPECT_LT(+camera.frame->markers[0].registrationErrorMM, 1e-3f);
}

TEST(Replay, RecordedImagesAreDelivered) {
    SceneGuard scene;
    const std::string file = writeRecording("replay-images.krec", 2, true);
    ASSERT_TRUE(ftkSimLoadReplay(file.c_str(), false)) << controlError();
    Camera::Capacities capacities;
    capacities.pixels = true;
    Camera camera(capacities);
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    const ftkFrameQuery& q = *camera.frame;
    ASSERT_EQ(static_cast<int>(q.imageLeftStat), 0);
    EXPECT_EQ(+q.imageHeader->width, 32);
    EXPECT_EQ(q.imageLeftPixels[100], 1);
    EXPECT_EQ(q.imageRightPixels[511], 101);
}

TEST(Replay, RecordingsThatCannotBePlayedAreRefusedByName) {
    SceneGuard scene;
    const std::string file = writeRecording("replay-damaged.krec", 3, false);
    {
        std::fstream f(file, std::ios::in | std::ios::out | std::ios::binary);
        f.seekp(-30, std::ios::end); // the last byte of frame 2, before the end record
        f.put('\x7f');
    }
    EXPECT_FALSE(ftkSimLoadReplay(file.c_str(), false));
    EXPECT_EQ(controlError(),
              "recording " + file + ": frame 2: damaged, its checksum does not match its content");
    const std::string empty = writeRecording("replay-empty.krec", 0, false);
    EXPECT_FALSE(ftkSimLoadReplay(empty.c_str(), false));
    EXPECT_EQ(controlError(), "recording " + empty + ": holds no frame");
    std::filesystem::remove(file);
    std::filesystem::remove(empty);
}

// A frame that cannot be read when its turn comes (the file changed since it was opened) fails
// the fetch with FTK_ERR_READ and the reason in the error text, writing nothing on stderr.
TEST(Replay, AFrameThatCannotBeReadFailsTheFetch) {
    SceneGuard scene;
    // Long enough that the last frame is read from the disk again, not from what the reader holds.
    const std::string file = writeRecording("replay-unreadable.krec", 200, false);
    ASSERT_TRUE(ftkSimLoadReplay(file.c_str(), false)) << controlError();
    Camera camera;
    ASSERT_EQ(camera.fetch(), ftkError::FTK_OK);
    {
        std::fstream f(file, std::ios::in | std::ios::out | std::ios::binary);
        f.seekp(-30, std::ios::end); // the last byte of frame 199, before the end record
        f.put('\x7f');
    }
    ASSERT_TRUE(ftkSimStep(Serial, 198));
    testing::internal::CaptureStderr();
    EXPECT_EQ(camera.fetch(), ftkError::FTK_ERR_READ);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_NE(
        camera.errorText().find("<error code=\"6\" name=\"FTK_ERR_READ\">recording " + file +
                                ": frame 199: damaged, its checksum does not match its content</error>"),
        std::string::npos)
        << camera.errorText();
    EXPECT_EQ(+camera.frame->imageHeader->counter, 500u) << "the record keeps the last frame delivered";
    int32 ended = -1;
    EXPECT_EQ(camera.getInt(camera.option("Replay ended"), ftkOptionGetter::FTK_VALUE, &ended),
              ftkError::FTK_OK);
    EXPECT_EQ(ended, 0) << "the last frame was not delivered";
    EXPECT_EQ(camera.fetch(), ftkError::FTK_WAR_NO_FRAME);
    std::filesystem::remove(file);
}
